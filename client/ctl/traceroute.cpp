#include <unistd.h>

#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

constexpr u32 kHops = 30;

// A line a hop, which grows with each of its probes.
class HopLines {
  public:
    explicit HopLines(std::FILE* out) : out_(out) {}

    void Add(const ShownEvent& event) {
        const long long hop = NumberOf(event.document, "hop");
        if (hop != hop_) {
            Print(Format("{}{:>3}", hop_ == 0 ? "" : "\n", hop));
            address_.clear();
        }
        hop_ = hop;
        const std::string address = TextOf(event.document, "address");
        if (!address.empty() && address != address_) Print("  " + (address_ = address));
        Print("  " + ProbeText(event));
        (void)std::fflush(out_);
    }
    [[nodiscard]] bool IsOpen() const {
        return hop_ != 0;
    }

  private:
    static std::string ProbeText(const ShownEvent& event) {
        switch (event.kind) {
            case TESSEL_EVENT_TRACE_ERROR:
                return "not sent";
            case TESSEL_EVENT_TRACE_UNREACHABLE:
                return "no route";
            case TESSEL_EVENT_TRACE_NO_REPLY:
                return "*";
            case TESSEL_EVENT_TRACE_REFUSED:
                return MillisecondsText(NumberOf(event.document, "rtt_us")) + " refused";
            default:
                return MillisecondsText(NumberOf(event.document, "rtt_us"));
        }
    }
    void Print(const std::string& text) {
        (void)std::fputs(text.c_str(), out_);
    }

    std::FILE* out_;
    long long hop_ = 0;
    std::string address_;
};

Outcome TraceRoute(const Invocation& invocation) {
    const auto& target = invocation.words.Get<Network>("A");
    const u32 hops = invocation.words.Get<u32>("hops", kHops);
    const i32 id = getpid();
    const TNetGateway address = GatewayOf(target);
    const auto start = [&] {
        const int error = tessel_traceroute_start(&address, hops, id);
        if (error == TESSEL_E_FAILED)
            throw CallFailed(
                invocation.asked, error,
                Format("{} traces run, or were not stopped (tesselctl traceroute stop N)", int{TESSEL_TRACES_MAX}));
        return error;
    };
    HopLines lines(invocation.out);
    const bool isForPeople = !invocation.options.json && invocation.options.fields.empty();
    int end = 0;  // the kind of the event that says how it ended
    const auto onEvent = [&](const ShownEvent& event) {
        if (isForPeople) {
            lines.Add(event);
        } else {
            ShowLine(invocation, event);
        }
        if (event.kind >= TESSEL_EVENT_TRACE_REACHED) end = event.kind;
        // Without a route the daemon would go on, 15 s a hop.
        return event.document["last"] != true && end != TESSEL_EVENT_TRACE_UNREACHABLE;
    };
    // Each probe is answered, or given up, within 5 s.
    constexpr std::chrono::seconds kPatience{TESSEL_TRACE_PROBES * 15};
    Outcome outcome = RunWatch(invocation, {.sockets = {{.name = Format("{}_{}", TESSEL_SOCKET_TRACEROUTE, id),
                                                         .start = start,
                                                         .stop = [=] { return tessel_traceroute_stop(id); }}},
                                            .onEvent = onEvent,
                                            .deadline = kPatience,
                                            .survivesTheDaemon = false});
    if (lines.IsOpen()) outcome.text = "\n";
    if (invocation.options.dryRun || outcome.failure || outcome.signal != 0 || end == TESSEL_EVENT_TRACE_REACHED)
        return outcome;
    outcome.failure = Failed(invocation.asked, end == TESSEL_EVENT_TRACE_UNREACHABLE ? "there is no route"
                                               : end == TESSEL_EVENT_TRACE_REFUSED
                                                   ? "the last one reports that the target cannot be reached"
                                                   : "the target was not reached");
    return outcome;
}

Outcome StopTrace(const Invocation& invocation) {
    const auto id = static_cast<i32>(invocation.words.Get<u32>("N"));
    return Perform(invocation,
                   {.send = [=] { return tessel_traceroute_stop(id); }, .done = Format("trace {} stopped", id)});
}

constexpr Command kTracerouteCommands[] = {
    Row("", "A [hops N:1-255]", &TraceRoute, "show the routers on the way to a host", "traceroute 192.168.1.1")
        .Sends(TESSEL_CMD_TRACEROUTE_START, TESSEL_CMD_TRACEROUTE_STOP)
        .More("Three probes to each of at most 30 hops; * is one without an answer, after 5 s. Traces over IPv6 "
              "that run at one time may take each other's answers."),
    Row("stop", "N:0-2147483647", &StopTrace, "end what a program has left behind, by its id", "traceroute stop 801")
        .Sends(TESSEL_CMD_TRACEROUTE_STOP)
        .More("Programs choose their ids; tesselctl's is the number of its process. It stops its own trace."),
};

}  // namespace

extern const Object kTraceroute = {
    .name = "traceroute", .summary = "the way of packets to a host", .commands = kTracerouteCommands};

}  // namespace tessel::ctl
