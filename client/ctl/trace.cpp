#include "client/ctl/trace.h"

#include <fmt/format.h>

#include <chrono>

#include "client/call.h"
#include "client/ctl/failure.h"
#include "client/ctl/messages.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/output.h"
#include "client/ctl/wait_notice.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

struct Trace {
    int verbosity = 0;
    bool isDryRun = false;
    std::FILE* err = nullptr;
    std::vector<PlannedRequest> planned;
    DryRun operations;
};
Trace g_trace;

std::string NameOf(u32 code) {
    const Message* message = FindMessage(code);
    return fmt::format("0x{:X} {}", code, message == nullptr ? "(no name)" : message->name);
}

ordered_json DescribedRequest(u32 code, std::span<const u8> bytes) {
    const Message* message = FindMessage(code);
    return message == nullptr ? ordered_json::object() : Decode(message->request, bytes);
}

std::string RequestLine(u32 code, std::span<const u8> bytes) {
    return fmt::format("{}   {}, {} bytes", NameOf(code), DescriptionText(DescribedRequest(code, bytes)), bytes.size());
}

void ShowBytes(std::span<const u8> bytes) {
    if (g_trace.verbosity > 1) fmt::print(g_trace.err, "{}", HexDump(bytes.data(), bytes.size()));
}

void ShowRequest(u32 code, std::span<const u8> bytes) {
    if (g_trace.verbosity == 0) return;
    fmt::print(g_trace.err, "-> {}\n", RequestLine(code, bytes));
    ShowBytes(bytes);
}

void ShowReply(u32 code, int error, std::span<const u8> bytes, double milliseconds) {
    if (g_trace.verbosity == 0) return;
    const int pid = tessel_daemon_pid();
    if (error != TESSEL_OK) {
        fmt::print(g_trace.err, "<- {}   {}, after {:.1f} ms\n", NameOf(code), tessel_strerror(error), milliseconds);
        return;
    }
    const Message* message = FindMessage(code);
    const std::string text = message == nullptr ? "" : DescriptionText(Decode(message->reply, bytes));
    fmt::print(g_trace.err, "<- {}   {}, {} bytes from pid {} in {:.1f} ms\n", NameOf(code), text, bytes.size(), pid,
               milliseconds);
    ShowBytes(bytes);
}

std::span<const u8> Bytes(const void* data, std::size_t size) {
    return {static_cast<const u8*>(data), size};
}

int TracedCall(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize) {
    using Clock = std::chrono::steady_clock;
    ShowRequest(code, Bytes(request, size));
    if (g_trace.isDryRun) {
        const auto bytes = Bytes(request, size);
        const Message* message = FindMessage(code);
        DryRunResult run;
        if (message != nullptr) run = g_trace.operations.Ask(*message, bytes);
        g_trace.planned.push_back({code, {bytes.begin(), bytes.end()}, std::move(run)});
        return kPlanned;
    }
    const auto start = Clock::now();
    const WaitNotice notice(g_trace.err);
    const int error = CallDaemon(code, request, size, reply, replySize);
    const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
    const int systemError = errno;
    ShowReply(code, error, Bytes(reply, replySize), taken.count());
    errno = systemError;
    return error;
}

ordered_json PlanJson(const PlannedRequest& request) {
    const Message* message = FindMessage(request.code);
    return {{"code", fmt::format("0x{:X}", request.code)},
            {"name", message == nullptr ? ordered_json() : ordered_json(message->name)},
            {"request", DescribedRequest(request.code, request.bytes)},
            {"size", request.bytes.size()},
            {"runs", request.run.lines},
            {"note", NullIfEmpty(request.run.note)}};
}

}  // namespace

void StartTrace(int verbosity, bool isDryRun, std::FILE* err) {
    g_trace = {
        .verbosity = isDryRun ? 0 : verbosity, .isDryRun = isDryRun, .err = err, .planned = {}, .operations = {}};
    UseTransport(&TracedCall);
}

const std::vector<PlannedRequest>& PlannedRequests() {
    return g_trace.planned;
}

std::string RenderPlan(const std::vector<PlannedRequest>& requests, const std::vector<std::string>& local,
                       const std::vector<std::string>& notes, bool asJson) {
    if (asJson) {
        ordered_json document{{"requests", ordered_json::array()}, {"local", local}, {"notes", notes}};
        for (const PlannedRequest& request : requests)
            document["requests"].push_back(PlanJson(request));
        return RenderJson(document);
    }
    std::string text;
    for (const PlannedRequest& request : requests) {
        text += fmt::format("request  {}\n", RequestLine(request.code, request.bytes));
        for (const std::string& line : request.run.lines)
            text += fmt::format("runs     {}\n", line);
        if (!request.run.note.empty()) text += fmt::format("note     {}\n", request.run.note);
    }
    for (const std::string& line : local)
        text += fmt::format("here     {}\n", line);
    for (const std::string& note : notes)
        text += fmt::format("note     {}\n", note);
    return text.empty() ? "nothing is sent\n" : text;
}

std::string HexDump(const u8* bytes, std::size_t size) {
    constexpr std::size_t kRowBytes = 16;
    std::string text;
    for (std::size_t i = 0; i < size; i += kRowBytes) {
        const std::size_t count = std::min(kRowBytes, size - i);
        text += fmt::format("   {:04x}  {:02x}\n", i, fmt::join(bytes + i, bytes + i + count, " "));
    }
    return text;
}

}  // namespace tessel::ctl
