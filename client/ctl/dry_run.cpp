#include <sys/socket.h>
#include <unistd.h>

#include <sstream>

#include "client/call.h"
#include "client/ctl/files.h"
#include "client/ctl/requests.h"
#include "core/log_state.h"
#include "core/unique_fd.h"
#include "route/priority_table.h"

namespace tessel::ctl {

namespace {

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

}  // namespace

DryRunResult DryRun::Ask(const Message& message, std::span<const u8> request) {
    if (message.handler == nullptr) return {{}, "the daemon " + std::string(message.inDaemon)};
    const i32 level = g_logLevel.exchange(0);  // nothing happens that the system's log should know of
    const bool usesPriorities = message.code == TESSEL_CMD_GATEWAY_SET || message.code == TESSEL_CMD_PRIORITY_SET;
    const bool isKnown = !usesPriorities || TakeOverPriorities();
    DryRunResult result;
    if (!isKnown) result.note = "without the daemon's answer its priorities are not known: metrics may differ";
    AnswerTools([this](const std::string& line) { return Answer(line); });
    const i32 answer = CallHandler(message, request);
    AnswerTools({});
    g_logLevel = level;
    result.lines = TakeToolLines();
    if (answer == TESSEL_RESULT_FAILED) result.note = "as far as can be seen from here, the daemon will answer -1";
    return result;
}

ToolAnswer DryRun::Answer(const std::string& line) {
    if (const auto change = ParseFilterLine(line)) {
        if (!filters_.contains(change->family)) filters_[change->family] = ReadFilter(change->family);
        return {.output = "", .status = filters_[change->family].Apply(*change) ? 0 : 1};
    }
    std::istringstream stream(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    if (!IsShow(words)) return {};
    const CapturedTool shown = CaptureTool(words);
    return {.output = shown.text + shown.problem, .status = shown.isDone ? 0 : 1};
}

}  // namespace tessel::ctl
