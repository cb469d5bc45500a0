#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "client/call.h"
#include "client/ctl/fields.h"
#include "client/ctl/files.h"
#include "client/ctl/perform.h"
#include "core/exec_note.h"
#include "core/log_state.h"
#include "core/unique_fd.h"
#include "route/priority_table.h"
#include "services/dhcp_server.h"

namespace tessel::ctl {

namespace {

// What the daemon would run for a request: its own operations, above tools that are only noted.
struct PlannedRequest {
    Message message;
    std::vector<u8> bytes;
    std::vector<std::string> lines = {};  // of the tools, in order
    std::string note = {};                // what else there is to know; may be empty
};

struct Passage {
    int verbosity = 0;
    bool isDryRun = false;
    bool isPlanning = false;  // nothing at all is sent
    std::FILE* err = nullptr;
    std::vector<PlannedRequest> planned;
    FilterPlan filters;  // what one request changes counts for the next
};
Passage g_passing;

// Also for an unknown code.
Message MessageOf(u32 code) {
    const Message* message = FindMessage(code);
    return message != nullptr ? *message : Message{code, "", {}, {}, nullptr, "has no such request"};
}

std::string NameOf(const Message& message) {
    return Format("0x{:X} {}", message.code, message.name.empty() ? "(no name)" : message.name);
}

std::string RequestLine(const Message& message, std::span<const u8> bytes) {
    const std::string fields = DescriptionText(Decode(message.request, bytes));
    return Format("{}{}{}, {} bytes", NameOf(message), fields.empty() ? "" : "   ", fields, bytes.size());
}

// Rows of 16 bytes, each with its offset.
std::string HexDump(std::span<const u8> bytes) {
    constexpr std::size_t kRowBytes = 16;
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += kRowBytes) {
        text += Format("   {:04x} ", i);
        for (std::size_t j = i; j < std::min(i + kRowBytes, bytes.size()); ++j)
            text += Format(" {:02x}", bytes[j]);
        text += "\n";
    }
    return text;
}

void ShowRequests(const std::string& line, std::span<const u8> bytes) {
    (void)std::fputs((line + "\n").c_str(), g_passing.err);
    if (g_passing.verbosity > 1) (void)std::fputs(HexDump(bytes).c_str(), g_passing.err);
}

std::string ReplyLine(const Message& message, int error, std::span<const u8> bytes, double milliseconds) {
    const std::string name = NameOf(message);
    if (error != TESSEL_OK) return Format("<- {}   {}, after {:.1f} ms", name, tessel_strerror(error), milliseconds);
    return Format("<- {}   {}, {} bytes from pid {} in {:.1f} ms", name, DescriptionText(Decode(message.reply, bytes)),
                  bytes.size(), tessel_daemon_pid(), milliseconds);
}

std::span<const u8> BytesAt(const void* data, std::size_t size) {
    return {static_cast<const u8*>(data), size};
}

// "ip [-4|-6] OBJECT show ...": the verb's place counts, because an interface may have any name.
bool IsShow(const std::vector<std::string>& words) {
    if (words.empty() || words[0] != "ip") return false;
    const auto object = std::find_if(words.begin() + 1, words.end(), [](const auto& word) { return word[0] != '-'; });
    return std::distance(object, words.end()) > 1 && object[1] == "show";
}

// The table of priorities lives in the daemon. False: it is not known.
bool TakeOverPriorities() {
    TNetPrioParamList list{};
    if (CallDaemon(TESSEL_CMD_PRIORITY_GET, nullptr, 0, &list, sizeof(list)) != TESSEL_OK) return false;
    for (u32 i = 0; i < std::size(list.atPrio); ++i)
        StorePriority(i, list.atPrio[i]);
    g_nRoutedetectE = list.dwNum != 0 ? 1 : 0;
    return true;
}

// What a handler answers first; 0 when it does not answer.
i32 CallHandler(const Message& message, std::span<const u8> request) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) return -1;
    const UniqueFd client(ends[0]);
    const UniqueFd server(ends[1]);
    std::array<u8, TESSEL_PAYLOAD_MAX> payload{};
    const std::size_t size = std::min(request.size(), payload.size());
    std::copy_n(request.begin(), size, payload.begin());
    (void)message.handler(server.Get(), message.code, payload.data(), static_cast<i32>(size));
    struct {
        IpcMsgHead head;
        i32 result;
    } reply{};
    return read(client.Get(), &reply, sizeof(reply)) == sizeof(reply) ? reply.result : 0;
}

// What a tool would answer. Lines that only read are run.
ToolAnswer AnswerTool(const std::string& line) {
    if (const auto isTaken = g_passing.filters.Apply(line)) return {.output = "", .status = *isTaken ? 0 : 1};
    const auto words = WordsIn(line);
    if (!IsShow(words)) return {};
    const CapturedTool shown = CaptureTool(words);
    return {.output = shown.text + shown.problem, .status = shown.isDone ? 0 : 1};
}

PlannedRequest Planned(const Message& message, std::span<const u8> bytes) {
    PlannedRequest planned{.message = message, .bytes = {bytes.begin(), bytes.end()}};
    if (!message.inDaemon.empty()) planned.note = Format("the daemon {}", message.inDaemon);
    if (message.handler == nullptr) return planned;
    if (g_ptDaeDhcpSInfo == nullptr) DaemonDhcpsInit();
    const i32 level = g_logLevel.exchange(0);  // nothing happens that belongs in the system's log
    const bool usesPriorities = message.code == TESSEL_CMD_GATEWAY_SET || message.code == TESSEL_CMD_PRIORITY_SET;
    if (usesPriorities && !TakeOverPriorities())
        planned.note = "the daemon did not answer, so its priorities are unknown: metrics may differ";
    AnswerTools(&AnswerTool);
    if (CallHandler(message, bytes) == TESSEL_RESULT_FAILED)
        planned.note = "as far as tesselctl can see, the daemon will answer -1";
    AnswerTools({});
    g_logLevel = level;
    planned.lines = TakeToolLines();
    return planned;
}

// Once it has lived for two seconds, a line on a terminal says what is being waited for.
std::jthread NoticeOfWaiting(std::FILE* err) {
    if (isatty(fileno(err)) == 0) return {};
    return std::jthread([=](const std::stop_token& stop) {
        constexpr std::chrono::seconds kPatience{2};
        std::mutex mutex;
        std::unique_lock lock(mutex);
        (void)std::condition_variable_any().wait_for(lock, stop, kPatience, [] { return false; });
        if (!stop.stop_requested())
            (void)std::fputs("note: no answer yet: this or an earlier request takes long (see --timeout)\n", err);
    });
}

int PassRequest(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize) {
    const auto sent = BytesAt(request, size);
    const Message message = MessageOf(code);
    if (g_passing.isDryRun || g_passing.isPlanning) {
        g_passing.planned.push_back(Planned(message, sent));
        const bool isAsked = message.IsQuery() && !g_passing.isPlanning;
        if (reply != nullptr) memset(reply, 0, replySize);
        if (!isAsked || tessel_daemon_is_listening() == 0) return TESSEL_OK;
        return CallDaemon(code, request, size, reply, replySize);
    }
    const bool isSecret = code == TESSEL_CMD_PPPOE_START;  // a password is shown to nobody
    if (g_passing.verbosity > 0)
        ShowRequests("-> " + RequestLine(message, sent), isSecret ? std::span<const u8>{} : sent);
    const auto start = Clock::now();
    const std::jthread notice = NoticeOfWaiting(g_passing.err);
    const int error = CallDaemon(code, request, size, reply, replySize);
    const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
    const int systemError = errno;
    const auto received = BytesAt(reply, error == TESSEL_OK ? replySize : 0);
    if (g_passing.verbosity > 0) ShowRequests(ReplyLine(message, error, received, taken.count()), received);
    errno = systemError;
    return error;
}

}  // namespace

void UseRequests(int verbosity, bool isDryRun, std::FILE* err) {
    g_passing = {};
    g_passing.verbosity = isDryRun ? 0 : verbosity;
    g_passing.isDryRun = isDryRun;
    g_passing.err = err;
    UseTransport(&PassRequest);
}

FilterPlan PlanFilters(const std::function<int()>& send) {
    const auto planned = g_passing.planned;
    const auto filters = std::exchange(g_passing.filters, {});
    g_passing.isPlanning = true;
    (void)send();
    g_passing.isPlanning = false;
    g_passing.planned = planned;
    return std::exchange(g_passing.filters, filters);
}

std::string RenderPlan(const Outcome& outcome, bool asJson) {
    Json document{{"requests", Json::array()}, {"local", outcome.planned}, {"notes", outcome.notes}};
    std::string text;
    const auto add = [&](const char* kind, const std::string& line) { text += Format("{:<8} {}\n", kind, line); };
    for (const auto& [message, bytes, lines, note] : g_passing.planned) {
        document["requests"].push_back({{"code", Format("0x{:X}", message.code)},
                                        {"name", NullIfEmpty(std::string(message.name))},
                                        {"request", Decode(message.request, bytes)},
                                        {"size", bytes.size()},
                                        {"runs", lines},
                                        {"note", NullIfEmpty(note)}});
        add("request", RequestLine(message, bytes));
        for (const std::string& line : lines)
            add("runs", line);
        if (!note.empty()) add("note", note);
    }
    for (const std::string& line : outcome.planned)
        add("here", line);
    for (const std::string& known : outcome.notes)
        add("note", known);
    if (asJson) return RenderJson(document);
    return text.empty() ? "nothing is sent\n" : text;
}

}  // namespace tessel::ctl
