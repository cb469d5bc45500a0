// The broadcast ARP announcer on a real link, and the sampler of traffic statistics.
#include <netinet/if_ether.h>

#include "tests/support/arp.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

// 60 bytes, as they are on the wire.
std::string Announcement(const char* own, const char* target) {
    const std::string mac = "\x02\x00\x00\x00\x09\x01"s;
    const std::string arp = Arp(1, mac, Number(inet_addr(own)), kNoMac, Number(inet_addr(target)));
    return Frame(kBroadcast, mac, arp) + std::string(18, '\0');
}

// The announcer's next frame. Conflict detection's are shorter.
std::string NextAnnouncement(const FarLink& link, int timeoutMs) {
    std::string frame = link.Next(timeoutMs);
    while (!frame.empty() && frame.size() != 60)
        frame = link.Next(timeoutMs);
    return frame;
}

TEST(AnnouncerLab, SendsBurstsUntilItIsStopped) {
    RunOnDevice("ip link set eth0 up; ip addr add 10.9.0.1/24 dev eth0; ip link set eth0 address 02:00:00:00:09:01");
    const Daemon daemon;
    const FarLink link("far0", ETH_P_ARP);
    const auto start = [](const char* target) { return RequestStatus(0xA01, Number(inet_addr(target))); };
    const auto stop = [] { return RequestStatus(0xA02, ""); };
    EXPECT_EQ(stop(), 0) << "it does not run";
    ASSERT_EQ(start("10.9.0.77"), 0);
    EXPECT_EQ(start("10.9.0.88"), 0) << "keeps the first address";
    const auto begin = steady_clock::now();
    for (int frame = 0; frame < 3; ++frame)
        EXPECT_EQ(NextAnnouncement(link, 2000), Announcement("10.9.0.1", "10.9.0.77"));
    EXPECT_GT(steady_clock::now() - begin, 1800ms) << "a second apart";
    EXPECT_EQ(NextAnnouncement(link, 2500), "") << "three";
    // Stopped while it waits for the next burst, and started again at once, with what the interface has now.
    EXPECT_LT(TimeOf([&] { EXPECT_EQ(stop(), 0); }), 1s);
    RunOnDevice("ip addr flush dev eth0; ip addr add 10.9.0.2/24 dev eth0");
    ASSERT_EQ(start("10.9.0.88"), 0);
    EXPECT_EQ(NextAnnouncement(link, 2000), Announcement("10.9.0.2", "10.9.0.88"));
    EXPECT_EQ(stop(), 0) << "within a burst";
    EXPECT_EQ(NextAnnouncement(link, 2500), "");
    // Without an address the burst fails, and the announcer goes on.
    RunOnDevice("ip addr flush dev eth0");
    ASSERT_EQ(start("10.9.0.88"), 0);
    EXPECT_TRUE(IsLogged("get ip failed!") && IsLogged("[SendBroadcastArp]"));
    EXPECT_TRUE(start("10.9.0.88") == 0 && stop() == 0);
    for (const auto& [text, count] : {std::pair{"Start already started!", 2U}, {"Stop already stopped!", 1U}})
        EXPECT_TRUE(Eventually([text = text, count = count] {
            return Split(ReadFile("/var/log/messages") + " ", text).size() == count + 1;
        })) << text;
}

TEST(TrafficLab, HasOneSampler) {
    const Daemon daemon;
    Listener listener(TESSEL_SOCKET_STAT);
    const auto next = [&] { EXPECT_TRUE(listener.Next() == 0 && listener.event.size == 72); };
    const auto samplers = [&] { return Threads(daemon.Pid(), "stat_thread\n"); };
    EXPECT_EQ(tessel_traffic_stop(), TESSEL_OK);
    ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK);
    ASSERT_EQ(tessel_traffic_start(60), TESSEL_OK) << "goes on with its own interval";
    next();
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
