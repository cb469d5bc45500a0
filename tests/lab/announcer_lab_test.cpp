// The broadcast ARP announcer and traffic statistics on real links.
#include <netinet/if_ether.h>

#include "tests/support/arp.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/lines.h"
#include "tests/support/listener.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr u32 kArpStart = 0xA01;
constexpr u32 kArpStop = 0xA02;
constexpr u32 kStatStart = 0x703;
constexpr u32 kStatStop = 0x704;

std::string Ip(const char* text) {
    return Number(inet_addr(text));
}

const std::string kMac = "\x02\x00\x00\x00\x09\x01"s;

// 60 bytes, as they are on the wire.
std::string Announcement(const char* own, const char* target) {
    return Frame(kBroadcast, kMac, Arp(1, kMac, Ip(own), kNoMac, Ip(target))) + std::string(18, '\0');
}

// The announcer's next frame. Conflict detection's are shorter.
std::string NextAnnouncement(const FarLink& link, int timeoutMs) {
    while (true) {
        const std::string frame = link.Next(timeoutMs);
        if (frame.size() == 60 || frame.empty()) return frame;
    }
}

std::size_t CountInLog(const char* part) {
    return Split(ReadFile("/var/log/messages") + " ", part).size() - 1;
}

TEST(AnnouncerLab, SendsBurstsUntilItIsStopped) {
    RunOnDevice("ip link set eth0 up; ip addr add 10.9.0.1/24 dev eth0; ip link set eth0 address 02:00:00:00:09:01");
    const Daemon daemon;
    const FarLink link("far0", ETH_P_ARP);
    EXPECT_FALSE(Request(kArpStart, "abc").has_value()) << "3 bytes: no reply";
    EXPECT_FALSE(Request(kArpStop, "a").has_value());
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0) << "it does not run";
    ASSERT_EQ(RequestStatus(kArpStart, Ip("10.9.0.77")), 0);
    EXPECT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0) << "keeps the first address";
    const auto start = steady_clock::now();
    for (int frame = 0; frame < 3; ++frame)
        EXPECT_EQ(NextAnnouncement(link, 2000), Announcement("10.9.0.1", "10.9.0.77"));
    EXPECT_GT(steady_clock::now() - start, milliseconds(1800)) << "a second apart";
    EXPECT_EQ(NextAnnouncement(link, 2500), "") << "three";
    // Stopped while it waits for the next burst, and started again at once, with what the interface has now.
    const auto stop = steady_clock::now();
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0);
    EXPECT_LT(steady_clock::now() - stop, seconds(1));
    RunOnDevice("ip addr flush dev eth0; ip addr add 10.9.0.2/24 dev eth0");
    ASSERT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0);
    EXPECT_EQ(NextAnnouncement(link, 2000), Announcement("10.9.0.2", "10.9.0.88"));
    // Stopped within a burst.
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0);
    EXPECT_EQ(NextAnnouncement(link, 2500), "");
    // Without an address the burst fails, and the announcer goes on.
    RunOnDevice("ip addr flush dev eth0");
    ASSERT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0);
    EXPECT_TRUE(Eventually([] { return CountInLog("[SendBroadcastArp]") == 1; }));
    EXPECT_TRUE(IsLogged("get ip failed!"));
    EXPECT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0);
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0);
    const std::pair<const char*, std::size_t> lines[] = {
        {"BroadcastArpStart already started!", 2}, {"BroadcastArpStop already stopped!", 1}, {"the size is error!", 2}};
    for (const auto& [line, count] : lines)
        EXPECT_EQ(CountInLog(line), count) << line;
}

TEST(TrafficLab, ReportsWhatPassesAndHasOneSampler) {
    const Daemon daemon;
    Listener listener(TESSEL_SOCKET_STAT);
    tessel_traffic traffic[TESSEL_TRAFFIC_INTERFACES]{};
    // Waits for the next report.
    const auto next = [&] {
        EXPECT_EQ(listener.Next(), 0);
        EXPECT_EQ(listener.event.size, 72U);
        EXPECT_EQ(tessel_event_traffic(&listener.event, traffic), TESSEL_OK);
    };
    const auto samplers = [&] { return Threads(daemon.Pid(), "stat_thread\n"); };
    RunOnDevice("ip link set eth0 up; ip link set eth1 up; ip link set eth2 up; ip addr add 10.9.0.1/24 dev eth0");
    EXPECT_EQ(RequestStatus(kStatStart, Number(0)), -1);
    EXPECT_EQ(RequestStatus(kStatStart, ""), -1);
    EXPECT_EQ(RequestStatus(kStatStop, ""), 0);
    ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK);
    ASSERT_EQ(tessel_traffic_start(60), TESSEL_OK) << "goes on with its own interval";
    next();
    const FarLink far("far0", ETH_P_ALL);
    for (int frame = 0; frame < 100; ++frame)
        far.Send(std::string(12, '\x02') + std::string(988, '\x08'));
    next();
    EXPECT_GE(traffic[0].received_bits_per_second, 800'000) << "100 frames of 1000 bytes within one second";
    EXPECT_LT(traffic[0].received_bits_per_second, 900'000);
    EXPECT_LT(traffic[0].sent_bits_per_second, 100'000);
    EXPECT_LT(traffic[1].received_bits_per_second, 100'000);
    EXPECT_EQ(traffic[2].is_valid, 1);
    EXPECT_EQ(traffic[0].has_restarted, 0);
    // An interface that has gone and come back under its name.
    RunOnDevice("ip link del eth2");
    next();
    EXPECT_EQ(traffic[2].is_valid, 0);
    // A stop lets the period that runs be reported, then the sampler ends; a start before goes on with it. However a
    // start meets that end, at once or after one more period, one samples afterwards.
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(tessel_traffic_stop(), TESSEL_OK);
        if (round > 0) (void)listener.Next(1500);
        usleep(static_cast<useconds_t>(round) * 300);
        ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK);
        next();
    }
    next();
    EXPECT_EQ(samplers(), 1);
    EXPECT_EQ(tessel_traffic_stop(), TESSEL_OK);
    EXPECT_TRUE(Eventually([&] { return samplers() == 0; }));
    while (listener.Next(100) >= 0) {
    }
    ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK) << "a new one";
    next();
}

}  // namespace
}  // namespace tessel::test
