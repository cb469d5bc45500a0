#include "client/ctl/requests.h"

#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "client/call.h"
#include "client/ctl/fields.h"
#include "client/ctl/output.h"

namespace tessel::ctl {

namespace {

struct Passage {
    int verbosity = 0;
    bool isDryRun = false;
    bool isPlanning = false;  // nothing at all is sent
    std::FILE* err = nullptr;
    std::vector<PlannedRequest> planned;
    DryRun operations;
};
Passage g_passing;

std::string NameOf(u32 code) {
    const Message* message = FindMessage(code);
    return Format("0x{:X} {}", code, message == nullptr ? "(no name)" : message->name);
}

Json DescribedRequest(u32 code, std::span<const u8> bytes) {
    const Message* message = FindMessage(code);
    return message == nullptr ? Json::object() : Decode(message->request, bytes);
}

std::string RequestLine(u32 code, std::span<const u8> bytes) {
    return Format("{}   {}, {} bytes", NameOf(code), DescriptionText(DescribedRequest(code, bytes)), bytes.size());
}

void ShowRequests(const std::string& line, std::span<const u8> bytes) {
    if (g_passing.verbosity == 0) return;
    (void)std::fputs((line + "\n").c_str(), g_passing.err);
    if (g_passing.verbosity > 1) (void)std::fputs(HexDump(bytes.data(), bytes.size()).c_str(), g_passing.err);
}

std::string ReplyLine(u32 code, int error, std::span<const u8> bytes, double milliseconds) {
    if (error != TESSEL_OK)
        return Format("<- {}   {}, after {:.1f} ms", NameOf(code), tessel_strerror(error), milliseconds);
    const Message* message = FindMessage(code);
    const std::string text = message == nullptr ? "" : DescriptionText(Decode(message->reply, bytes));
    return Format("<- {}   {}, {} bytes from pid {} in {:.1f} ms", NameOf(code), text, bytes.size(),
                  tessel_daemon_pid(), milliseconds);
}

std::span<const u8> BytesAt(const void* data, std::size_t size) {
    return {static_cast<const u8*>(data), size};
}

// Asks the daemon's own operations what they would run.
void Note(u32 code, std::span<const u8> bytes) {
    const Message* message = FindMessage(code);
    DryRunResult run;
    if (message != nullptr) run = g_passing.operations.Ask(*message, bytes);
    g_passing.planned.push_back({code, {bytes.begin(), bytes.end()}, std::move(run)});
}

// While it lives longer than two seconds, a line says what is waited for, on a terminal. It is stopped, and joined, as
// it is destroyed.
std::jthread NoticeOfWaiting(std::FILE* err) {
    if (isatty(fileno(err)) == 0) return {};
    return std::jthread([err](const std::stop_token& stop) {
        constexpr std::chrono::seconds kPatience{2};
        std::mutex mutex;
        std::unique_lock lock(mutex);
        (void)std::condition_variable_any().wait_for(lock, stop, kPatience, [] { return false; });
        if (stop.stop_requested()) return;
        (void)std::fputs("note: still waiting: the daemon serves one request at a time (--timeout limits this)\n", err);
    });
}

int PassRequest(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize) {
    const auto sent = BytesAt(request, size);
    if (g_passing.isDryRun || g_passing.isPlanning) {
        Note(code, sent);
        const Message* message = FindMessage(code);
        const bool isAsked = message != nullptr && message->IsQuery() && !g_passing.isPlanning;
        if (reply != nullptr) memset(reply, 0, replySize);
        if (!isAsked || tessel_daemon_is_listening() == 0) return TESSEL_OK;
        return CallDaemon(code, request, size, reply, replySize);
    }
    const bool isSecret = code == TESSEL_CMD_PPPOE_START;  // a password is shown to nobody
    ShowRequests("-> " + RequestLine(code, sent), isSecret ? std::span<const u8>{} : sent);
    const auto start = Clock::now();
    const std::jthread notice = NoticeOfWaiting(g_passing.err);
    const int error = CallDaemon(code, request, size, reply, replySize);
    const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
    const int systemError = errno;
    const auto received = BytesAt(reply, error == TESSEL_OK ? replySize : 0);
    if (g_passing.verbosity > 0) ShowRequests(ReplyLine(code, error, received, taken.count()), received);
    errno = systemError;
    return error;
}

Json PlanJson(const PlannedRequest& request) {
    const Message* message = FindMessage(request.code);
    return {{"code", Format("0x{:X}", request.code)},
            {"name", message == nullptr ? Json() : Json(message->name)},
            {"request", DescribedRequest(request.code, request.bytes)},
            {"size", request.bytes.size()},
            {"runs", request.run.lines},
            {"note", NullIfEmpty(request.run.note)}};
}

}  // namespace

void UseRequests(int verbosity, bool isDryRun, std::FILE* err) {
    g_passing = {.verbosity = isDryRun ? 0 : verbosity,
                 .isDryRun = isDryRun,
                 .isPlanning = false,
                 .err = err,
                 .planned = {},
                 .operations = {}};
    UseTransport(&PassRequest);
}

const std::vector<PlannedRequest>& PlannedRequests() {
    return g_passing.planned;
}

std::vector<std::string> PlannedLines(const std::function<int()>& send) {
    std::vector<PlannedRequest> before = std::exchange(g_passing.planned, {});
    const DryRun operations = std::exchange(g_passing.operations, {});
    g_passing.isPlanning = true;
    (void)send();
    g_passing.isPlanning = false;
    g_passing.operations = operations;
    std::vector<std::string> lines;
    for (const PlannedRequest& request : std::exchange(g_passing.planned, std::move(before)))
        lines.insert(lines.end(), request.run.lines.begin(), request.run.lines.end());
    return lines;
}

std::string RenderPlan(const std::vector<PlannedRequest>& requests, const std::vector<std::string>& local,
                       const std::vector<std::string>& notes, bool asJson) {
    if (asJson) {
        Json document{{"requests", Json::array()}, {"local", local}, {"notes", notes}};
        for (const PlannedRequest& request : requests)
            document["requests"].push_back(PlanJson(request));
        return RenderJson(document);
    }
    std::string text;
    const auto add = [&](const char* kind, const std::string& line) { text += Format("{:<8} {}\n", kind, line); };
    for (const PlannedRequest& request : requests) {
        add("request", RequestLine(request.code, request.bytes));
        for (const std::string& line : request.run.lines)
            add("runs", line);
        if (!request.run.note.empty()) add("note", request.run.note);
    }
    for (const std::string& line : local)
        add("here", line);
    for (const std::string& note : notes)
        add("note", note);
    return text.empty() ? "nothing is sent\n" : text;
}

std::string HexDump(const u8* bytes, std::size_t size) {
    constexpr std::size_t kRowBytes = 16;
    std::string text;
    for (std::size_t i = 0; i < size; i += kRowBytes) {
        text += Format("   {:04x} ", i);
        for (std::size_t j = i; j < std::min(i + kRowBytes, size); ++j)
            text += Format(" {:02x}", bytes[j]);
        text += "\n";
    }
    return text;
}

}  // namespace tessel::ctl
