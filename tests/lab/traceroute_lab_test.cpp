// Traces through routers that forward, over both families. The commands' handlers run in this process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <thread>

#include "core/family.h"
#include "probe/traceroute.h"
#include "probe/traceroute_probe.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"
#include "tests/support/logged.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

// eth0 -1- far -2- two -3- three -4- host: 10.N.0.1 and fd00:N::1 are the near ends, .2 and ::2 the far ends. "two"
// keeps silent, and "three" knows that nobody is behind 10.6 and fd00:6.
constexpr char kLab[] = R"(set -e
Forward() { ip netns exec $1 sh -c 'cd /proc/sys/net; echo 1 >ipv4/ip_forward; echo 1 >ipv6/conf/all/forwarding
    echo 0 >ipv4/icmp_ratelimit; echo 0 >ipv6/icmp/ratelimit'; }
End() { ip $3 addr add 10.$1.0.$2/24 dev $4; ip $3 addr add fd00:$1::$2/64 dev $4 nodad; ip $3 link set $4 up; }
Onward() { ip $2 route add default via 10.$1.0.2; ip $2 -6 route add default via fd00:$1::2; }
Forward far; End 1 1 "" eth0; End 1 2 "-n far" far0; Onward 1 ""
near=far; n=2
for next in two three host; do
    ip netns add $next; Forward $next
    ip -n $near link add near$n index 2$n type veth peer name next$n index 3$n netns $next
    End $n 1 "-n $near" near$n; End $n 2 "-n $next" next$n; Onward $n "-n $near"
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

    i32 Start(u32 id, const char* target, u32 hops = 30) {
        return tools.Status(0xD01, std::string(Bytes(Address(target))) + Number(hops) + Number(id));
    }
    void Stop(u32 id) {
        const auto begin = steady_clock::now();
        EXPECT_EQ(tools.Status(0xD02, Number(id)), 0);
        EXPECT_LT(steady_clock::now() - begin, seconds(3)) << "patience is ten times as long, a dead client costs 8 s";
    }

    LoggedTools tools{4};
};

// A client and its notices.
class Client : public Listener {
  public:
    explicit Client(u32 id) : Listener(("ipc_traceroute_" + std::to_string(id)).c_str()), id_(id) {}

    // "TYPE HOP ADDRESS", with " last" behind the last one; empty when none came in time.
    std::string Next(int timeoutMs = 20000) {
        const i64 type = Listener::Next(timeoutMs);
        if (type < 0) return "";
        const auto word = [&](int at) {
            u32 value = 0;
            memcpy(&value, event.payload + at, sizeof(value));
            return value;
        };
        EXPECT_EQ(event.size, 48U);
        EXPECT_EQ(word(24), id_);
        EXPECT_TRUE(type == 102 ? word(28) == 5000000 : (word(28) == 0) == (type == 101 || type == 105)) << word(28);
        EXPECT_EQ(word(32) | word(36) | word(40) | (word(0) == 2 ? word(8) | word(12) | word(16) : 0), 0U);
        EXPECT_LE(word(44), 1U);
        return std::to_string(type) + ' ' + std::to_string(word(20)) + ' ' +
               AddressText(static_cast<u16>(word(0)), event.payload + 4).text + (word(44) == 1 ? " last" : "");
    }

    // All up to the last; one that equals that before it is a "+".
    std::string Route() {
        std::string route;
        std::string before;
        for (std::string line = Next(); line != ""; line = before.ends_with(" last") ? "" : Next()) {
            route += line == before ? "+" : (before.empty() ? "" : "; ") + line;
            before = line;
        }
        return route;
    }

  private:
    u32 id_;
};

TEST_F(TracerouteLab, EachProbeIsReported) {
    Client client(7);
    const std::tuple<const char*, u32, std::string> rows[] = {
        {"10.4.0.2", 30, "103 1 10.1.0.2++; 102 2 0.0.0.0++; 103 3 10.3.0.2++; 104 4 10.4.0.2 last"},
        {"fd00:4::2", 30, "103 1 fd00:1::2++; 102 2 ::++; 103 3 fd00:3::2++; 104 4 fd00:4::2 last"},
        {"10.1.0.1", 3, "104 1 10.1.0.1 last"},
        {"10.4.0.2", 1, "103 1 10.1.0.2+; 103 1 10.1.0.2 last"},
        {"fd00:4::2", 2, "103 1 fd00:1::2++; 102 2 ::+; 102 2 :: last"},
        {"10.6.0.1", 30, "103 1 10.1.0.2++; 102 2 0.0.0.0++; 106 3 10.3.0.2 last"},
        {"fd00:6::1", 30, "103 1 fd00:1::2++; 102 2 ::++; 106 3 fd00:3::2 last"},
        {"10.7.0.1", 1,
         "105 1 0.0.0.0; 102 1 0.0.0.0; 105 1 0.0.0.0; 102 1 0.0.0.0; 105 1 0.0.0.0; 102 1 0.0.0.0 last"},
        {"fd00:8::1", 1, "101 1 ::; 102 1 ::; 101 1 ::; 102 1 ::; 101 1 ::; 102 1 :: last"},
    };
    g_probePatience = milliseconds(500);
    for (const auto& [target, hops, expected] : rows) {
        EXPECT_EQ(Start(7, target, hops), 0);
        EXPECT_EQ(client.Route(), expected) << target;
        EXPECT_EQ(Start(7, target, hops), -1) << "at its end, but not stopped";
        Stop(7);
    }
    EXPECT_EQ(Start(7, "10.4.0.2", 0), 0);
    EXPECT_EQ(client.Next(300), "") << "0 hops, and nothing behind what was the last";
    Stop(7);
    const std::string log = tools.TakeLog();
    for (const char* text : {"Tracert4: tracert api server path : ipc_traceroute_7", "Recv: select timeout.",
                             "pIcmp->icmp_code = [1]; Tracert4: the Tracert4 will return!", "Recv6: icmp type = 3",
                             "pIcmp->icmp_code = [0]; Tracert6: the Tracert6 will return!", "sendto error{errno(101):"})
        EXPECT_THAT(log, HasSubstr(text));
    g_probePatience = milliseconds(1);
    EXPECT_EQ(Start(7, "10.9.0.1", 300), 0);
    std::string hops;
    for (int i = 1; i <= 255; ++i)
        hops += "102 " + std::to_string(i) + " 0.0.0.0" + (i < 255 ? "++; " : "+; 102 255 0.0.0.0 last");
    EXPECT_EQ(client.Route(), hops);
}

TEST_F(TracerouteLab, AnswersOfAnotherTraceAreTakenOverInet6Only) {
    g_probePatience = seconds(2);
    Client first(1);
    Client second(2);
    const std::tuple<const char*, const char*> rows[] = {{"10.4.0.2", "102 2 0.0.0.0"},
                                                         {"fd00:4::2", "103 2 fd00:1::2"}};
    for (const auto& [target, expected] : rows) {
        EXPECT_EQ(Start(1, target), 0);
        for (int probe = 0; probe < 3; ++probe)
            EXPECT_THAT(first.Next(), HasSubstr("103 1 "));
        EXPECT_EQ(Start(2, target, 1), 0);
        EXPECT_EQ(first.Next(), expected) << "while the silent router is waited for";
        EXPECT_THAT(second.Route(), HasSubstr(" last"));
        Stop(1);
        Stop(2);
        while (first.Next(100) != "") {
        }
    }
}

TEST_F(TracerouteLab, TenAtOnceWithADeadClient) {
    g_probePatience = seconds(30);
    const UniqueFd taken(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));  // 32768
    sockaddr_in6 port{};
    port.sin6_family = AF_INET6;
    port.sin6_port = htons(32768);
    ASSERT_EQ(bind(taken.Get(), reinterpret_cast<const sockaddr*>(&port), sizeof(port)), 0);
    const auto isBound = [](const char* hex) {
        return OutputOf("cat /proc/net/udp /proc/net/udp6").find(":" + std::string(hex) + " 0") != std::string::npos;
    };
    constexpr u32 kDead = 5;
    EXPECT_EQ(Start(kDead, "10.4.0.2"), 0);
    std::list<Client> clients;
    for (u32 id = 0; id < 10; ++id) {
        if (id == kDead) continue;
        clients.emplace_back(id);
        EXPECT_EQ(Start(id, id % 2 == 0 ? "10.4.0.2" : "fd00:4::2"), 0);
    }
    for (Client& client : clients) {
        for (int probe = 0; probe < 3; ++probe)
            EXPECT_THAT(client.Next(), testing::StartsWith("103 1 "));
    }
    EXPECT_EQ(tools.TakeLog().find("send and recv msg error"), std::string::npos) << "nobody has waited for the dead";
    for (const char* hex : {"8001", "8002", "8003", "8004", "8005", "8006", "8007", "8008", "8009", "800A"})
        EXPECT_TRUE(isBound(hex)) << hex;
    EXPECT_EQ(Start(10, "10.4.0.2"), -1);
    for (u32 id = 0; id < 10; ++id)
        Stop(id);
    EXPECT_EQ(Threads(getpid(), "TesselSysTracer"), 0);
    EXPECT_FALSE(isBound("8001"));
    EXPECT_EQ(Start(10, "10.4.0.2"), 0);
    EXPECT_TRUE(Eventually([&] { return isBound("8001"); })) << "the search has begun anew";
    Stop(10);
}

TEST_F(TracerouteLab, RefusalsAreLogged) {
    for (u32 id = 0; id < 10; ++id)
        EXPECT_EQ(Start(id, "nobody's family"), 0);
    EXPECT_TRUE(Eventually([&] { return Threads(getpid(), "TesselSysTracer") == 0; }));
    EXPECT_THAT(tools.TakeLog(), HasSubstr("TacerouteThread: the wSinFamily 7 is invalid!"));
    const std::string anybody(Bytes(Address("10.4.0.2")));
    tools.Check({
        {"the eleventh",
         {0xD01, anybody + Number(3) + Number(77)},
         -1,
         "",
         "ApidTracerouteStart: TracerouteStart user 77 begin!; TracerouteStart: the user num is reach the maxmium 10; "
         "ApidTracerouteStart: traceroute_start error!"},
        {"the same id",
         {0xD01, anybody + Number(3) + Number(3)},
         -1,
         "",
         "ApidTracerouteStart: TracerouteStart user 3 begin!; TracerouteStart: the nUserID 3 now is tracing!; "
         "ApidTracerouteStart: traceroute_start error!"},
        {"an unknown id",
         {0xD02, Number(77)},
         0,
         "",
         "ApidTracerouteStop: TracerouteStop user 77 begin!; TracerouteStop: the nUserId 77 has been stopped!"},
    });
}

// Starts and stops from several threads, half of the clients dead: nothing is left behind.
TEST_F(TracerouteLab, StormsLeaveNothingBehind) {
    Stop(0);  // opens the system log
    const auto descriptors = Descriptors();
    const char* const wanted = getenv("TESSEL_STORM_SECONDS");
    const auto end = steady_clock::now() + seconds(wanted != nullptr ? atoi(wanted) : 8);
    g_probePatience = milliseconds(20);
    {
        std::list<Client> clients;
        std::list<std::thread> threads;
        std::atomic<int> started{0};
        for (u32 seed = 0; seed < 3; ++seed) {
            Client& client = clients.emplace_back(seed);
            threads.emplace_back([&, seed]() mutable {
                const char* const targets[] = {"10.4.0.2", "fd00:4::2", "10.6.0.1", "fd00:8::1", "127.0.0.1"};
                while (steady_clock::now() < end) {
                    const u32 id = static_cast<u32>(rand_r(&seed)) % 12;
                    if (rand_r(&seed) % 3 == 0) Stop(id);
                    started += Start(id, targets[rand_r(&seed) % 5], 4) == 0;
                    (void)client.Next(1);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_GT(started, 10);
    }
    for (u32 id = 0; id < 12; ++id)
        Stop(id);
    EXPECT_EQ(Threads(getpid(), "TesselSysTracer"), 0);
    EXPECT_EQ(Descriptors(), descriptors);
}

}  // namespace
}  // namespace tessel::test
