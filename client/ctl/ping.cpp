#include <unistd.h>

#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

constexpr u32 kCount = 4;
constexpr u32 kDataBytes = 56;
constexpr u32 kTtl = 64;
constexpr u32 kTimeoutSeconds = 2;

struct Echoes {
    long long sent = 0;
    std::vector<long long> times;  // of the answers, in microseconds

    void Add(const ShownEvent& event) {
        sent = NumberOf(event.document, "seq") + 1;
        if (event.kind == TESSEL_EVENT_PING_REPLY) times.push_back(NumberOf(event.document, "rtt_us"));
    }
    [[nodiscard]] Json Document() const {
        Json document{{"sent", sent}, {"answered", times.size()}, {"lost_percent", nullptr}};
        const auto answered = static_cast<long long>(times.size());
        if (sent > 0) document["lost_percent"] = (sent - answered) * 100 / sent;
        const auto ends = std::minmax_element(times.begin(), times.end());
        long long sum = 0;
        for (const long long time : times)
            sum += time;
        document["rtt_min_us"] = times.empty() ? Json() : Json(*ends.first);
        document["rtt_avg_us"] = times.empty() ? Json() : Json(sum / answered);
        document["rtt_max_us"] = times.empty() ? Json() : Json(*ends.second);
        return document;
    }
};

std::string SummaryText(const Json& echoes) {
    std::string text = Format("{} sent, {} answered", NumberOf(echoes, "sent"), NumberOf(echoes, "answered"));
    if (!echoes["lost_percent"].is_null()) text += Format(", {}% lost", NumberOf(echoes, "lost_percent"));
    if (echoes["rtt_min_us"].is_null()) return text + "\n";
    return text + Format(", {} / {} / {}\n", MillisecondsText(NumberOf(echoes, "rtt_min_us"), ""),
                         MillisecondsText(NumberOf(echoes, "rtt_avg_us"), ""),
                         MillisecondsText(NumberOf(echoes, "rtt_max_us")));
}

Outcome Ping(const Invocation& invocation) {
    const auto& target = invocation.words.Get<Network>("A");
    const TNetPingStartReq request{.tTarget = GatewayOf(target),
                                   .dwPacketSize = invocation.words.Get<u32>("size", kDataBytes),
                                   .dwTimeout = invocation.words.Get<u32>("timeout", kTimeoutSeconds),
                                   .dwTtl = invocation.words.Get<u32>("ttl", kTtl),
                                   .dwCount = invocation.words.Get<u32>("count", kCount),
                                   .nUserId = getpid()};
    const auto start = [&] {
        const int error = tessel_ping_start(&request);
        if (error == TESSEL_E_FAILED) {
            throw CallFailed(invocation.asked, error, Format("{} pings run already", int{TESSEL_PINGS_MAX}));
        }
        return error;
    };
    Watch watch{.sockets = {{.name = Format("{}_{}", TESSEL_SOCKET_PING, request.nUserId),
                             .start = start,
                             .stop = [&] { return tessel_ping_stop(request.nUserId); }}},
                .survivesTheDaemon = false};
    // Nothing comes of an echo whose reply cannot be read, perhaps of the last one either.
    const auto timeFor = [&](long long echoes) {
        return std::chrono::seconds(echoes * (request.dwTimeout + 2LL) + 8LL);
    };
    watch.deadline = timeFor(request.dwCount);
    Echoes echoes;
    bool isOverdue = false;
    watch.onEvent = [&](const ShownEvent& event) {
        echoes.Add(event);
        watch.deadline = timeFor(request.dwCount - echoes.sent);
        ShownEvent shown = event;
        shown.line = Format("{}: {}", HostText(target), event.text);
        ShowLine(invocation, shown);
        return event.document["last"] != true;
    };
    watch.onDeadline = [&] {
        isOverdue = true;
        return false;
    };
    Outcome outcome = RunWatch(invocation, watch);
    if (invocation.options.dryRun) return outcome;
    const Json summary = echoes.Document();
    if (invocation.options.fields.empty()) outcome.document = summary;
    outcome.text = SummaryText(summary);
    if (isOverdue) outcome.notes.emplace_back("given up: the daemon reports nothing of what is left");
    if (echoes.times.empty() && outcome.signal == 0 && !outcome.failure)
        outcome.failure = Failed(invocation.asked, "no echo came back");
    return outcome;
}

Outcome StopPing(const Invocation& invocation) {
    const auto id = static_cast<i32>(invocation.words.Get<u32>("N"));
    return Perform(invocation, {.send = [=] { return tessel_ping_stop(id); }, .done = Format("ping {} stopped", id)});
}

constexpr Command kPingCommands[] = {
    Row("", "A [count N:1-1000000] [size N:56-65507] [ttl N:1-255] [timeout S:1-3600]", &Ping,
        "send echo requests from the device", "ping 192.168.1.1 count 3")
        .Sends(TESSEL_CMD_PING_START, TESSEL_CMD_PING_STOP)
        .More("4 of 56 bytes unless said otherwise, each when the one before has ended, which it does after 2 s "
              "without a reply. Ends with status 1 when none came back."),
    Row("stop", "N:0-2147483647", &StopPing, "end what a program has left behind, by its id", "ping stop 801")
        .Sends(TESSEL_CMD_PING_STOP)
        .More("Programs choose their ids; tesselctl's is the number of its process. It stops its own ping."),
};

}  // namespace

extern const Object kPing = {.name = "ping", .summary = "echo requests from the device", .commands = kPingCommands};

}  // namespace tessel::ctl
