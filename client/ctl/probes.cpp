// Packets that the device sends to find something out: ping and traceroute. Both end with the request that stops them.
#include <unistd.h>

#include <numeric>

#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

template <int (*kStop)(i32)>
Outcome StopProbe(const Invocation& invocation) {
    const auto id = static_cast<i32>(invocation.words.Get<u32>("N"));
    const char* const what = kStop == &tessel_ping_stop ? "ping" : "trace";
    return Perform(invocation, {.send = [=] { return kStop(id); }, .done = Format("{} {} stopped", what, id)});
}

constexpr char kStopWords[] = "N:0-2147483647";
constexpr char kStopSummary[] = "stop what another program left running, by its id";

// `times` are those of the answers, in microseconds.
Json EchoesJson(long long sent, const std::vector<long long>& times) {
    const auto answered = static_cast<long long>(times.size());
    Json echoes{{"sent", sent}, {"answered", answered}, {"lost_percent", nullptr}};
    if (sent > 0) echoes["lost_percent"] = (sent - answered) * 100 / sent;
    const auto [least, most] = std::minmax_element(times.begin(), times.end());
    const long long sum = std::accumulate(times.begin(), times.end(), 0LL);
    echoes["rtt_min_us"] = times.empty() ? Json() : Json(*least);
    echoes["rtt_avg_us"] = times.empty() ? Json() : Json(sum / answered);
    echoes["rtt_max_us"] = times.empty() ? Json() : Json(*most);
    return echoes;
}

std::string EchoesText(const Json& echoes) {
    const auto number = [&](const char* key) { return NumberOf(echoes, key); };
    std::string text = Format("{} sent, {} answered", number("sent"), number("answered"));
    if (number("sent") > 0) text += Format(", {}% lost", number("lost_percent"));
    if (number("answered") == 0) return text + "\n";
    return text + Format(", {} / {} / {}\n", MillisecondsText(number("rtt_min_us"), ""),
                         MillisecondsText(number("rtt_avg_us"), ""), MillisecondsText(number("rtt_max_us")));
}

Outcome Ping(const Invocation& invocation) {
    const Words& words = invocation.words;
    const auto& target = words.Get<Network>("A");
    const TNetPingStartReq request{.tTarget = GatewayOf(target),
                                   .dwPacketSize = words.Get<u32>("size", 56),
                                   .dwTimeout = words.Get<u32>("timeout", 2),
                                   .dwTtl = words.Get<u32>("ttl", 64),
                                   .dwCount = words.Get<u32>("count", 4),
                                   .nUserId = getpid()};
    // An echo whose reply cannot be read brings no event, and it may be the last one.
    const auto timeFor = [&](long long echoes) {
        return std::chrono::seconds(echoes * (request.dwTimeout + 2LL) + 8LL);
    };
    Watch watch{.sockets = {{.name = Format("{}_{}", TESSEL_SOCKET_PING, request.nUserId),
                             .start = [&] { return tessel_ping_start(&request); },
                             .stop = [&] { return tessel_ping_stop(request.nUserId); },
                             .cause = Format("{} pings run already", int{TESSEL_PINGS_MAX})}},
                .deadline = timeFor(request.dwCount),
                .survivesTheDaemon = false};
    long long sent = 0;
    std::vector<long long> times;
    bool isOver = false;
    watch.onEvent = [&](const ShownEvent& event) {
        sent = NumberOf(event.document, "seq") + 1;
        if (event.kind == TESSEL_EVENT_PING_REPLY) times.push_back(NumberOf(event.document, "rtt_us"));
        watch.deadline = timeFor(request.dwCount - sent);
        ShownEvent shown = event;
        shown.line = Format("{}: {}", HostText(target), event.text);
        ShowLine(invocation, shown);
        isOver = event.document["last"] == true;
        return !isOver;
    };
    Outcome outcome = RunWatch(invocation, watch);
    if (invocation.options.dryRun) return outcome;
    const Json echoes = EchoesJson(sent, times);
    if (invocation.options.fields.empty()) outcome.document = echoes;
    outcome.text = EchoesText(echoes);
    if (outcome.signal != 0 || outcome.failure) return outcome;
    if (!isOver) outcome.notes.emplace_back("gave up: the daemon has stopped reporting");
    if (times.empty()) outcome.failure = Failed(invocation.asked, "no echo came back");
    return outcome;
}

constexpr Command kPingCommands[] = {
    Row("", "A [count N:1-1000000] [size N:56-65507] [ttl N:1-255] [timeout S:1-3600]", &Ping,
        "send echo requests from the device", "ping 192.168.1.1 count 3")
        .Sends(TESSEL_CMD_PING_START, TESSEL_CMD_PING_STOP)
        .More("Sends 4 of 56 bytes by default, each after the previous one was answered or 2 s have passed. Exit "
              "status 1 if none came back."),
    Row("stop", kStopWords, &StopProbe<&tessel_ping_stop>, kStopSummary, "ping stop 801")
        .Sends(TESSEL_CMD_PING_STOP)
        .More("Programs choose their own ids; tesselctl uses its process id. It stops its own ping."),
};

std::string ProbeText(const ShownEvent& event) {
    if (event.kind == TESSEL_EVENT_TRACE_ERROR) return "not sent";
    if (event.kind == TESSEL_EVENT_TRACE_UNREACHABLE) return "no route";
    if (event.kind == TESSEL_EVENT_TRACE_NO_REPLY) return "*";
    const std::string time = MillisecondsText(NumberOf(event.document, "rtt_us"));
    return event.kind == TESSEL_EVENT_TRACE_REFUSED ? time + " refused" : time;
}

// By the last event that says how it ended.
std::string WhyNotReached(const ShownEvent& end) {
    if (end.kind == TESSEL_EVENT_TRACE_UNREACHABLE) return "there is no route";
    if (end.kind == TESSEL_EVENT_TRACE_REFUSED)
        return FillTemplate("hop {hop}, {address}, reports that the target cannot be reached", end.document);
    return "the target was not reached";
}

Outcome TraceRoute(const Invocation& invocation) {
    const u32 hops = invocation.words.Get<u32>("hops", 30);
    const i32 id = getpid();
    const TNetGateway target = GatewayOf(invocation.words.Get<Network>("A"));
    const WatchedSocket socket{
        .name = Format("{}_{}", TESSEL_SOCKET_TRACEROUTE, id),
        .start = [&] { return tessel_traceroute_start(&target, hops, id); },
        .stop = [=] { return tessel_traceroute_stop(id); },
        .cause = Format("{} traces run or were left behind (tesselctl traceroute stop N)", int{TESSEL_TRACES_MAX})};
    const bool isForPeople = !invocation.options.json && invocation.options.fields.empty();
    long long hop = 0;  // of the open line: one per hop, which grows with each of its probes
    std::string address;
    const auto addToLine = [&](const ShownEvent& event) {
        std::string text;
        const long long before = std::exchange(hop, NumberOf(event.document, "hop"));
        if (hop != before) {
            text = Format("{}{:>3}", before == 0 ? "" : "\n", hop);
            address.clear();
        }
        const std::string sender = TextOf(event.document, "address");
        if (!sender.empty() && sender != address) text += "  " + (address = sender);
        (void)std::fputs((text + "  " + ProbeText(event)).c_str(), invocation.out);
        (void)std::fflush(invocation.out);
    };
    ShownEvent end;
    const auto onEvent = [&](const ShownEvent& event) {
        if (isForPeople) addToLine(event);
        if (!isForPeople) ShowLine(invocation, event);
        if (event.kind >= TESSEL_EVENT_TRACE_REACHED) end = event;
        // Without a route the daemon would continue, 15 s per hop.
        return event.document["last"] != true && end.kind != TESSEL_EVENT_TRACE_UNREACHABLE;
    };
    // Each probe is answered, or given up, within 5 s.
    constexpr std::chrono::seconds kPatience{TESSEL_TRACE_PROBES * 15};
    Outcome outcome = RunWatch(
        invocation, {.sockets = {socket}, .onEvent = onEvent, .deadline = kPatience, .survivesTheDaemon = false});
    if (hop != 0) outcome.text = "\n";
    const bool isDone = invocation.options.dryRun || outcome.signal != 0 || end.kind == TESSEL_EVENT_TRACE_REACHED;
    if (!isDone && !outcome.failure) outcome.failure = Failed(invocation.asked, WhyNotReached(end));
    return outcome;
}

constexpr Command kTracerouteCommands[] = {
    Row("", "A [hops N:1-255]", &TraceRoute, "show the routers on the path to a host", "traceroute 192.168.1.1")
        .Sends(TESSEL_CMD_TRACEROUTE_START, TESSEL_CMD_TRACEROUTE_STOP)
        .More("Sends three probes to each of at most 30 hops; * marks one that was not answered within 5 s. IPv6 "
              "traces running at the same time may take each other's answers."),
    Row("stop", kStopWords, &StopProbe<&tessel_traceroute_stop>, kStopSummary, "traceroute stop 801")
        .Sends(TESSEL_CMD_TRACEROUTE_STOP)
        .More("Programs choose their own ids; tesselctl uses its process id. It stops its own trace."),
};

}  // namespace

extern const Object kPing = {.name = "ping", .summary = "echo requests from the device", .commands = kPingCommands};
extern const Object kTraceroute = {
    .name = "traceroute", .summary = "the path of packets to a host", .commands = kTracerouteCommands};

}  // namespace tessel::ctl
