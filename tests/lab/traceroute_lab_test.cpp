// Traces through routers that forward, over both families. The commands' handlers run in this process.
#include <linux/if_ether.h>

#include <list>

#include "core/family.h"
#include "probe/traceroute.h"
#include "probe/traceroute_probe.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"
#include "tests/support/logged.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

// eth0 -1- far -2- two -3- three -4- host: 10.N.0.1 and fd00:N::1 are the near ends, .2 and ::2 the far ends. "two"
// keeps silent, and "three" knows that nobody is behind 10.6 and fd00:6.
constexpr char kLab[] = R"(set -e
End() { ip $3 addr add 10.$1.0.$2/24 dev $4; ip $3 addr add fd00:$1::$2/64 dev $4 nodad; ip $3 link set $4 up; }
Link() { End $1 1 "$2" $4; End $1 2 "-n $3" $5
    ip $2 route add default via 10.$1.0.2; ip $2 -6 route add default via fd00:$1::2
    ip netns exec $3 sh -c 'cd /proc/sys/net; echo 1 >ipv4/ip_forward; echo 1 >ipv6/conf/all/forwarding
        echo 0 >ipv4/icmp_ratelimit; echo 0 >ipv6/icmp/ratelimit'; }
Link 1 "" far eth0 far0
near=far; n=2
for next in two three host; do
    ip netns add $next; ip -n $near link add a$n index 2$n type veth peer name b$n index 3$n netns $next
    Link $n "-n $near" $next a$n b$n
    ip -n $next route add 10.1.0.0/24 via 10.$n.0.1; ip -n $next -6 route add fd00:1::/64 via fd00:$n::1
    near=$next; n=$((n + 1))
done
ip netns exec two iptables -A OUTPUT -p icmp --icmp-type time-exceeded -j DROP
ip netns exec two ip6tables -A OUTPUT -p icmpv6 --icmpv6-type time-exceeded -j DROP
ip -n three route add unreachable 10.6.0.0/16; ip -n three -6 route add unreachable fd00:6::/32
ip route add throw 10.7.0.0/16; ip -6 route add prohibit fd00:8::/32
ip route add 10.9.0.0/16 dev eth1; ip neigh add 10.9.0.1 lladdr 02:00:00:00:09:09 dev eth1)";

class TracerouteLab : public testing::Test {
  protected:
    TracerouteLab() {
        DaemonTracerouteInit();
        RunOnDevice(kLab);
    }
    ~TracerouteLab() override {
        StopAll();
    }

    i32 Start(u32 id, const char* target, u32 hops = 30) {
        return tools.Status(0xD01, std::string(Bytes(Address(target))) + Number(hops) + Number(id));
    }
    void Stop(u32 id) {
        EXPECT_LT(TimeOf([&] { EXPECT_EQ(tools.Status(0xD02, Number(id)), 0); }), 3s)
            << "a dead client costs 8, a silent router up to 30";
    }
    void StopAll() {
        for (u32 id = 0; id < 12; ++id)
            Stop(id);
        EXPECT_TRUE(Eventually([] { return Threads(getpid(), "TesselSysTracer") == 0; }));
    }

    LoggedTools tools{4};
};

// A client and its notices.
class Client : public Listener {
  public:
    explicit Client(i32 id) : Listener(("ipc_traceroute_" + std::to_string(id)).c_str()), id_(id) {}

    // "TYPE HOP ADDRESS", with " last" behind the last one; empty when none came in time.
    std::string Next(int timeoutMs = 20000) {
        const i64 type = Listener::Next(timeoutMs);
        TNetTracerouteResult result{};
        if (type < 0 || tessel_event_trace(&event, &result) != TESSEL_OK) return "";
        const AddressText hop(result.tHop);
        // An answer of this machine's own may be there in less than a microsecond.
        const bool wasSent = type != 101 && type != 105;
        EXPECT_TRUE(type == 102 ? result.dwTime == 5000000 : result.dwTime < (wasSent ? 5000000U : 1U)) << type;
        const TNetTracerouteResult clean{Address(hop.text), result.dwHop, id_, result.dwTime, {}, result.dwLast & 1};
        EXPECT_EQ(Bytes(result), Bytes(clean)) << "with zeros wherever there is nothing to say";
        return std::to_string(type) + ' ' + std::to_string(result.dwHop) + ' ' + hop.text +
               (result.dwLast != 0 ? " last" : "");
    }

    // All up to the last; one that equals that before it is a "+".
    std::string Route() {
        std::string route, before;
        for (std::string line = Next(); !line.empty(); line = before.ends_with(" last") ? "" : Next()) {
            route += line == before ? "+" : (before.empty() ? "" : "; ") + line;
            before = line;
        }
        return route;
    }

  private:
    i32 id_;
};

TEST_F(TracerouteLab, EachProbeIsReported) {
    Client client(7);
    const std::tuple<const char*, u32, std::string> rows[] = {
        {"10.4.0.2", 30, "103 1 10.1.0.2++; 102 2 0.0.0.0++; 103 3 10.3.0.2++; 104 4 10.4.0.2 last"},
        {"fd00:4::2", 30, "103 1 fd00:1::2++; 102 2 ::++; 103 3 fd00:3::2++; 104 4 fd00:4::2 last"},
        {"10.4.0.2", 1, "103 1 10.1.0.2+; 103 1 10.1.0.2 last"},
        {"fd00:4::2", 2, "103 1 fd00:1::2++; 102 2 ::+; 102 2 :: last"},
        {"10.6.0.1", 30, "103 1 10.1.0.2++; 102 2 0.0.0.0++; 106 3 10.3.0.2 last"},
        {"fd00:6::1", 30, "103 1 fd00:1::2++; 102 2 ::++; 106 3 fd00:3::2 last"},
        {"10.7.0.1", 1,
         "105 1 0.0.0.0; 102 1 0.0.0.0; 105 1 0.0.0.0; 102 1 0.0.0.0; 105 1 0.0.0.0; 102 1 0.0.0.0 last"},
        {"fd00:8::1", 1, "101 1 ::; 102 1 ::; 101 1 ::; 102 1 ::; 101 1 ::; 102 1 :: last"},
    };
    g_probePatience = 500ms;
    for (const auto& [target, hops, expected] : rows) {
        EXPECT_EQ(Start(7, target, hops), 0);
        EXPECT_EQ(client.Route(), expected) << target;
        EXPECT_EQ(Start(7, target, hops), -1) << "at its end, but not stopped";
        Stop(7);
    }
    for (const auto& [target, hops] : {std::pair("10.4.0.2", 0U), {"nobody's family", 30U}}) {
        EXPECT_EQ(Start(7, target, hops), 0);
        EXPECT_EQ(client.Next(300), "") << target;
        Stop(7);
    }
    // What is no answer, an echo reply, begins a wait of its own. A busy machine may be late by a second.
    g_probePatience = 3s;
    EXPECT_EQ(Start(7, "fd00:4::2", 2), 0);
    for (int probe = 0; probe < 3; ++probe)
        (void)client.Next();
    for (const char type : {'\x81', '\x03'}) {
        std::this_thread::sleep_for(2s);
        SendIcmpv6("far0", "fd00:1::1", type + std::string(7, '\0'));
    }
    EXPECT_EQ(client.Next(), "103 2 fd00:1::2");
    Stop(7);
    const std::string log = tools.TakeLog();
    for (const char* text :
         {"TacerouteThread: the wSinFamily 7 is invalid!", "TracerouteStart: the nUserID 7 now is tracing!",
          "ApidTracerouteStop: TracerouteStop user 7 begin!; TracerouteStop: the nUserId 7 has been stopped!",
          "Tracert4: tracert api server path : ipc_traceroute_7", "Recv: select timeout.", "pIcmp->icmp_code = [1]",
          "Tracert4: the Tracert4 will return!", "Recv6: icmp type = 3", "pIcmp->icmp_code = [0]",
          "Tracert6: the Tracert6 will return!", "sendto error{errno(101):"})
        EXPECT_THAT(log, HasSubstr(text));
}

TEST_F(TracerouteLab, ProbesAreNumberedByTheirPortsAndGo255HopsAtMost) {
    g_probePatience = 1ms;
    const FarLink link("far1", ETH_P_IP);
    Client client(7);
    EXPECT_EQ(Start(7, "10.9.0.1", 300), 0);
    for (char probe = 0; probe < 6; ++probe) {
        const std::string frame = link.Next();
        EXPECT_EQ(frame.at(22), 1 + probe / 3) << "the hops that it may go";
        EXPECT_EQ(frame.substr(34, 6), "\x80\0\x82"s + static_cast<char>(0x9b + probe) + "\0\x40"s);
        EXPECT_EQ(frame.substr(42), Padded("VELTRAC", 56));
    }
    EXPECT_THAT(client.Route(), testing::EndsWith("102 254 0.0.0.0++; 102 255 0.0.0.0+; 102 255 0.0.0.0 last"));
}

TEST_F(TracerouteLab, TenAtOnceWithADeadClient) {
    g_probePatience = 30s;
    UniqueFd taken = BoundTo(32768, AF_INET6, SOCK_DGRAM);
    const auto bound = [] {
        return OutputOf("sed -n 's/.*:\\(80..\\) 0.*/\\1/p' /proc/net/udp /proc/net/udp6 | sort -u");
    };
    EXPECT_EQ(Start(0, "10.4.0.2"), 0) << "nobody listens";
    std::list<Client> clients;
    for (i32 id = 1; id < 10; ++id) {
        clients.emplace_back(id);
        // Several over IPv6 would take each other's answers, and end.
        EXPECT_EQ(Start(static_cast<u32>(id), id < 9 ? "10.4.0.2" : "fd00:4::2"), 0);
    }
    for (Client& client : clients) {
        for (int probe = 0; probe < 3; ++probe)
            EXPECT_TRUE(client.Next().starts_with("103 1 "));
    }
    EXPECT_EQ(tools.TakeLog().find("send and recv msg error"), std::string::npos) << "nobody has waited for the dead";
    const std::string all = "8000\n8001\n8002\n8003\n8004\n8005\n8006\n8007\n8008\n8009\n800A\n";
    EXPECT_TRUE(Eventually([&] { return bound() == all; })) << bound();
    EXPECT_EQ(Start(77, "10.4.0.2"), -1);
    EXPECT_THAT(tools.TakeLog(), HasSubstr("TracerouteStart user 77 begin!; TracerouteStart: the user num is reach the "
                                           "maxmium 10; ApidTracerouteStart: traceroute_start error!"));
    StopAll();
    EXPECT_EQ(tools.TakeLog().find("rror"), std::string::npos) << "a notice that is given up has not failed";
    EXPECT_EQ(bound(), "8000\n");
    taken.Reset();
    EXPECT_EQ(Start(10, "10.4.0.2"), 0);
    EXPECT_TRUE(Eventually([&] { return bound() == "8000\n"; })) << "the search has begun anew";
}

// Starts and stops from several threads, most clients dead: nothing is left behind.
TEST_F(TracerouteLab, StormsLeaveNothingBehind) {
    Stop(0);  // opens the system log
    const auto descriptors = Descriptors();
    const char* const wanted = getenv("TESSEL_STORM_SECONDS");
    const auto end = steady_clock::now() + std::chrono::seconds(wanted != nullptr ? atoi(wanted) : 8);
    g_probePatience = 20ms;
    std::atomic<int> started{0};
    const auto storm = [&](unsigned seed) {
        Client client(static_cast<i32>(seed));
        const char* const targets[] = {"10.4.0.2", "fd00:4::2", "10.6.0.1", "fd00:8::1", "127.0.0.1"};
        while (steady_clock::now() < end) {
            const u32 id = static_cast<u32>(rand_r(&seed)) % 12;
            if (rand_r(&seed) % 3 == 0) Stop(id);
            started += Start(id, targets[rand_r(&seed) % 5], 4) == 0;
            (void)client.Next(1);
        }
    };
    std::thread threads[] = {std::thread(storm, 0), std::thread(storm, 1), std::thread(storm, 2)};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(started, 10);
    StopAll();
    EXPECT_EQ(Descriptors(), descriptors);
}

}  // namespace
}  // namespace tessel::test
