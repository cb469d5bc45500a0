// The broadcast ARP announcer and traffic statistics on real links.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/if_ether.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "client/libtessel.h"
#include "core/unique_fd.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

constexpr u32 kArpStart = 0xA01;
constexpr u32 kArpStop = 0xA02;
constexpr u32 kStatStart = 0x703;
constexpr u32 kStatStop = 0x704;

constexpr char kLog[] = "/var/log/messages";

std::string Ip(const char* text) {
    const u32 address = inet_addr(text);
    return std::string(Bytes(address));
}

// 60 bytes, as they are on the wire.
std::string Announcement(const std::string& mac, const char* own, const char* target) {
    return std::string(6, '\xff') + mac + std::string("\x08\x06\x00\x01\x08\x00\x06\x04\x00\x01", 10) + mac + Ip(own) +
           std::string(6, '\0') + Ip(target) + std::string(18, '\0');
}

// The announcer's next frame. Conflict detection's are shorter.
std::string NextAnnouncement(const FarLink& link, int timeoutMs) {
    while (true) {
        const std::string frame = link.Next(timeoutMs);
        if (frame.size() == 60 || frame.empty()) return frame;
    }
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(AnnouncerLab, SendsBurstsUntilItIsStopped) {
    RunOnDevice("ip link set eth0 up; ip addr add 10.9.0.1/24 dev eth0; ip link set eth0 address 02:00:00:00:09:01");
    const Daemon daemon;
    const FarLink link("far0", ETH_P_ARP);
    const std::string mac("\x02\x00\x00\x00\x09\x01", 6);
    EXPECT_FALSE(Request(kArpStart, "abc").has_value()) << "3 bytes: no reply";
    EXPECT_FALSE(Request(kArpStop, "a").has_value());
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0) << "it does not run";
    ASSERT_EQ(RequestStatus(kArpStart, Ip("10.9.0.77")), 0);
    EXPECT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0) << "keeps the first address";
    EXPECT_EQ(NextAnnouncement(link, 2000), Announcement(mac, "10.9.0.1", "10.9.0.77"));
    const auto first = steady_clock::now();
    EXPECT_EQ(NextAnnouncement(link, 2000), Announcement(mac, "10.9.0.1", "10.9.0.77"));
    EXPECT_EQ(NextAnnouncement(link, 2000), Announcement(mac, "10.9.0.1", "10.9.0.77"));
    EXPECT_GT(steady_clock::now() - first, milliseconds(1800)) << "a second apart";
    EXPECT_EQ(NextAnnouncement(link, 2500), "") << "three";
    // Stopped while it waits for the next burst, and started again at once, with what the interface has now.
    const auto stop = steady_clock::now();
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0);
    EXPECT_LT(steady_clock::now() - stop, seconds(1));
    RunOnDevice("ip addr flush dev eth0; ip addr add 10.9.0.2/24 dev eth0");
    ASSERT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0);
    EXPECT_EQ(NextAnnouncement(link, 2000), Announcement(mac, "10.9.0.2", "10.9.0.88"));
    // Stopped within a burst.
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0);
    EXPECT_EQ(NextAnnouncement(link, 2500), "");
    // Without an address the burst fails, and the announcer goes on.
    RunOnDevice("ip addr flush dev eth0");
    ASSERT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0);
    EXPECT_TRUE(Eventually([] { return Count(ReadFile(kLog), "[SendBroadcastArp]") == 1; }));
    EXPECT_THAT(ReadFile(kLog), HasSubstr("get ip failed!"));
    EXPECT_EQ(RequestStatus(kArpStart, Ip("10.9.0.88")), 0);
    EXPECT_EQ(RequestStatus(kArpStop, ""), 0);
    EXPECT_EQ(Count(ReadFile(kLog), "BroadcastArpStart already started!"), 2U);
    EXPECT_EQ(Count(ReadFile(kLog), "BroadcastArpStop already stopped!"), 1U);
    EXPECT_EQ(Count(ReadFile(kLog), "the size is error!"), 2U);
}

std::size_t Samplers(pid_t daemon) {
    std::size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/task"))
        count += ReadFile(task.path() / "comm") == "stat_thread\n" ? 1 : 0;
    return count;
}

TEST(TrafficLab, ReportsWhatPasses) {
    RunOnDevice("ip link set eth0 up; ip link set eth1 up; ip link set eth2 up; ip addr add 10.9.0.1/24 dev eth0");
    const Daemon daemon;
    tessel_listener* listener = nullptr;
    ASSERT_EQ(tessel_listener_open(TESSEL_SOCKET_STAT, 0, &listener), TESSEL_OK);
    const u32 none = 0;
    EXPECT_EQ(RequestStatus(kStatStart, Bytes(none)), -1);
    EXPECT_EQ(RequestStatus(kStatStart, ""), -1);
    EXPECT_EQ(RequestStatus(kStatStop, ""), 0);
    ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK);
    ASSERT_EQ(tessel_traffic_start(60), TESSEL_OK) << "goes on with its own interval";
    tessel_event event{};
    tessel_traffic traffic[TESSEL_TRAFFIC_INTERFACES];
    ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK);
    ASSERT_EQ(tessel_event_traffic(&event, traffic), TESSEL_OK);
    const FarLink far("far0", ETH_P_ALL);
    for (int frame = 0; frame < 100; ++frame)
        far.Send(std::string(12, '\x02') + std::string(988, '\x08'));
    ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK);
    EXPECT_EQ(event.type, 0U);
    EXPECT_EQ(event.size, 72U);
    ASSERT_EQ(tessel_event_traffic(&event, traffic), TESSEL_OK);
    EXPECT_GE(traffic[0].received_bits_per_second, 800'000) << "100 frames of 1000 bytes within one second";
    EXPECT_LT(traffic[0].received_bits_per_second, 900'000);
    EXPECT_LT(traffic[0].sent_bits_per_second, 100'000);
    EXPECT_LT(traffic[1].received_bits_per_second, 100'000);
    EXPECT_EQ(traffic[2].is_valid, 1);
    EXPECT_EQ(traffic[0].has_restarted, 0);
    // An interface that has gone and come back under its name.
    RunOnDevice("ip link del eth2");
    ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK);
    ASSERT_EQ(tessel_event_traffic(&event, traffic), TESSEL_OK);
    EXPECT_EQ(traffic[2].is_valid, 0);
    // A stop lets the period that runs be reported, then the sampler ends; a start before goes on with it.
    EXPECT_EQ(tessel_traffic_stop(), TESSEL_OK);
    ASSERT_EQ(tessel_traffic_start(60), TESSEL_OK);
    for (int period = 0; period < 2; ++period)
        ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK) << period;
    EXPECT_EQ(Samplers(daemon.Pid()), 1U);
    EXPECT_EQ(tessel_traffic_stop(), TESSEL_OK);
    EXPECT_TRUE(Eventually([&] { return Samplers(daemon.Pid()) == 0; }));
    ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK) << "a new one";
    while (tessel_listener_next(listener, &event, 100) == TESSEL_OK) {
    }
    ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK);
    tessel_listener_close(listener);
}

// However a start meets the end of the sampler before it, one samples afterwards.
TEST(TrafficLab, ExactlyOneSamplesAfterAnyStart) {
    const Daemon daemon;
    tessel_listener* listener = nullptr;
    ASSERT_EQ(tessel_listener_open(TESSEL_SOCKET_STAT, 0, &listener), TESSEL_OK);
    ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK);
    tessel_event event{};
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK);
        ASSERT_EQ(tessel_traffic_stop(), TESSEL_OK);
        // Around the moment at which it notices: at once, or after one more period.
        (void)tessel_listener_next(listener, &event, 1500);
        usleep(static_cast<useconds_t>(round) * 300);
        ASSERT_EQ(tessel_traffic_start(1), TESSEL_OK);
    }
    ASSERT_EQ(tessel_listener_next(listener, &event, 5000), TESSEL_OK);
    EXPECT_EQ(Samplers(daemon.Pid()), 1U);
    tessel_listener_close(listener);
}

}  // namespace
}  // namespace tessel::test
