// DHCP client sessions: what is run, what is reported to whom, and that nothing is left behind.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "client/libtessel.h"
#include "tests/support/daemon.h"
#include "tests/support/dhcp.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr u32 kStart = 0x501;
constexpr u32 kStartEx = 0x508;
constexpr u32 kStop = 0x502;
constexpr u32 kRenew = 0x507;

constexpr char kResultV4[] = "/tmp/udhcpc.confeth0";
constexpr char kResultV6[] = "/tmp/udhcpc6.confeth0";

std::string StartOf(u16 family, const char* name, i32 pid) {
    TNetDhcpcStartReq request{.wSinFamily = family, .achDevName = {}, .nPid = pid};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

std::string StartExOf(u16 family, const char* name, u16 dns, i32 pid) {
    TNetDhcpcStartExReq request{.wSinFamily = family, .achDevName = {}, .wDnsDynmic = dns, .nPid = pid};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

std::string Of(u16 family, const char* name) {
    TNetDhcpcReq request{.wSinFamily = family, .achDevName = {}};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

class Listener {
  public:
    explicit Listener(const char* name) {
        tessel_listener* listener = nullptr;
        EXPECT_EQ(tessel_listener_open(name, 0, &listener), TESSEL_OK);
        listener_.reset(listener);
    }
    // The next report: its type, and its bytes in `lease`. -1 when none came in time.
    i64 Next(TNetDhcpcLease& lease, int timeoutMs = 5000) {
        tessel_event event{};
        if (tessel_listener_next(listener_.get(), &event, timeoutMs) != TESSEL_OK) return -1;
        EXPECT_EQ(event.size, sizeof(lease));
        EXPECT_EQ(tessel_event_lease(&event, &lease), TESSEL_OK);
        return event.type;
    }
    i64 Next(int timeoutMs = 5000) {
        TNetDhcpcLease lease;
        return Next(lease, timeoutMs);
    }

  private:
    std::unique_ptr<tessel_listener, decltype(&tessel_listener_close)> listener_{nullptr, &tessel_listener_close};
};

TNetGateway Address(u16 family, u16 familyField, const char* text) {
    TNetGateway address{};
    address.wSinFamily = familyField;
    inet_pton(family, text, address.abyAddr);
    return address;
}

std::size_t Workers(pid_t daemon) {
    std::size_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/task"))
        count += ReadFile(task.path() / "comm").find("TesselDhcpc") != std::string::npos ? 1 : 0;
    return count;
}

// Once what watches the interfaces has opened its sockets, too.
std::ptrdiff_t Descriptors(pid_t daemon) {
    std::ptrdiff_t before = -1;
    std::ptrdiff_t now = 0;
    EXPECT_TRUE(Eventually([&] {
        now = std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(daemon) + "/fd"), {});
        std::this_thread::sleep_for(milliseconds(300));
        return std::exchange(before, now) == now;
    }));
    return now;
}

void EndProcess(pid_t pid) {
    ASSERT_GT(pid, 0);
    kill(pid, SIGKILL);
    EXPECT_TRUE(Eventually([&] {
        (void)waitpid(pid, nullptr, WNOHANG);  // this process inherits what the daemon leaves to itself
        return kill(pid, 0) != 0;
    }));
}

constexpr char kStartLine[] = "udhcpc -i eth0 -s /etc/scripts/udhcpc.script -p /tmp/udhcpceth0.pid blocked 10 12 15";

TEST(DhcpClient, LeasesAreReportedByteForByte) {
    StandInClients clients;
    const Daemon daemon;
    Listener listener("ipc_dhcpc_eth0_77");
    ASSERT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 77)), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre(kStartLine));
    EXPECT_NE(ReadFile("/proc/" + std::to_string(StandInClients::PidOf("udhcpc -i", "eth0")) + "/status")
                  .find("\nPPid:\t" + std::to_string(getpid()) + "\n"),
              std::string::npos)
        << "the daemon's child it is not";

    WriteResult(kResultV4,
                "leasesuccess\nlocal=192.168.1.20\nsubnet=255.255.255.0\nrouter=192.168.1.1\ndns=8.8.8.8\n"
                "dns=1.1.1.1\nleasetime=3600\n");
    TNetDhcpcLease expected{};
    strcpy(expected.achDevName, "eth0");
    expected.tAddr = Address(AF_INET, 2, "192.168.1.20");
    expected.tRouter = Address(AF_INET, 0, "192.168.1.1");
    expected.dwPrefixLen = 24;
    expected.dwLeaseTime = 3600;
    expected.dwDnsNum = 2;
    expected.atDns[0] = Address(AF_INET, 0, "8.8.8.8");
    expected.atDns[1] = Address(AF_INET, 0, "1.1.1.1");
    TNetDhcpcLease lease{};
    EXPECT_EQ(listener.Next(lease), 0x505);
    EXPECT_EQ(Bytes(lease), Bytes(expected));
    EXPECT_FALSE(std::filesystem::exists(kResultV4));

    const struct {
        const char* text;
        i64 type;
    } rows[] = {{"deconfig\n", 0}, {"deconfig\n", -1},        {"timeout\n", -1},    {"leasefail\n", 0x506},
                {"nak\n", 0x506},  {"leasesuccess\n", 0x505}, {"what is this\n", 0}};
    for (const auto& row : rows) {
        WriteResult(kResultV4, row.text);
        EXPECT_EQ(listener.Next(row.type < 0 ? 400 : 5000), row.type) << row.text;
        EXPECT_TRUE(Eventually([] { return !std::filesystem::exists(kResultV4); })) << row.text;
    }
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth0")), 0);
    EXPECT_EQ(Workers(daemon.Pid()), 0U);
}

TEST(DhcpClient, OneWorkerWhateverHappensToTheClient) {
    StandInClients clients;
    const Daemon daemon;
    const auto descriptors = Descriptors(daemon.Pid());
    Listener second("ipc_dhcpc_eth0_78");
    ASSERT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 77)), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre(kStartLine));
    // What runs is asked to renew, and reports to whoever asked last.
    EXPECT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 78)), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre("udhcpc eth0 USR1"));
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_EQ(second.Next(), 0x505);
    // A client that has died gets a successor.
    EndProcess(StandInClients::PidOf("udhcpc -i", "eth0"));
    EXPECT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 78)), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre(kStartLine));
    EXPECT_EQ(Workers(daemon.Pid()), 1U);
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_EQ(second.Next(), 0x505);
    // Stopped when it has died: the answer says so.
    EndProcess(StandInClients::PidOf("udhcpc -i", "eth0"));
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth0")), -1);
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth0")), 0) << "nothing is left";
    EXPECT_EQ(Workers(daemon.Pid()), 0U);
    // One that somebody else has started is released and renewed by a start, and ended by a stop without a session.
    ASSERT_EQ(system("udhcpc -i eth0 & sleep 0.3"), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre("udhcpc -i eth0 blocked"));
    EXPECT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 78)), 0);
    EXPECT_THAT(clients.Take(2), testing::UnorderedElementsAre("udhcpc eth0 USR2", "udhcpc eth0 USR1"));
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth0")), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre("kill -9"));
    ASSERT_EQ(system("udhcpc -i eth0 & sleep 0.3"), 0);
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth0")), 0);
    EXPECT_EQ(StandInClients::PidOf("udhcpc -i", "eth0"), 0);
    EXPECT_EQ(Descriptors(daemon.Pid()), descriptors);
}

TEST(DhcpClient, StopEndsTheClientsHelpersAndNoOther) {
    StandInClients clients;
    const Daemon daemon;
    for (const char* name : {"eth1", "eth10"})
        ASSERT_EQ(RequestStatus(kStartEx, StartExOf(2, name, 0, 5)), 0);
    EXPECT_THAT(clients.Take(2),
                ElementsAre("udhcpc -i eth1 -o -O router subnet -s /etc/scripts/udhcpc.script -p /tmp/udhcpceth1.pid "
                            "blocked 10 12 15",
                            "udhcpc -i eth10 -o -O router subnet -s /etc/scripts/udhcpc.script -p /tmp/udhcpceth10.pid "
                            "blocked 10 12 15"));
    ASSERT_EQ(system("for helper in zcip udhcpc.script; do perl -e 'sleep 100' $helper eth1 & done; sleep 0.3"), 0);
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth1")), 0);
    EXPECT_THAT(clients.Take(3), ElementsAre("kill -9", "kill -9", "kill -9"));
    for (const char* program : {"udhcpc -i", "zcip", "udhcpc.script"})
        EXPECT_EQ(StandInClients::PidOf(program, "eth1"), 0) << program;
    EXPECT_GT(StandInClients::PidOf("udhcpc -i", "eth10"), 0);
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth10")), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre("kill -9"));
}

TEST(DhcpClient, RefusesWhatMakesNoSense) {
    StandInClients clients;
    const Daemon daemon;
    for (const char* name : {"", "-V", "a/b", "..", "two words"}) {
        EXPECT_EQ(RequestStatus(kStart, StartOf(2, name, 1)), -1) << name;
        EXPECT_EQ(RequestStatus(kStop, Of(2, name)), 0) << name;
    }
    EXPECT_EQ(RequestStatus(kStart, StartOf(7, "eth0", 1)), -1);
    EXPECT_EQ(RequestStatus(kStart, ""), -1);
    EXPECT_EQ(RequestStatus(kRenew, Of(2, "eth0")), -1);
    EXPECT_EQ(RequestStatus(kRenew, Of(10, "eth0")), -1);
    EXPECT_EQ(RequestStatus(kStop, Of(7, "eth0")), 0);
    EXPECT_EQ(RequestStatus(kStart, StartOf(10, "eth7", 1)), -1) << "no link-local address";
    EXPECT_THAT(ReadFile("/var/log/messages"), HasSubstr("fe80::/64 not exist on eth7"));
    std::filesystem::remove("/etc/scripts/udhcpc.script");
    EXPECT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 1)), -1);
    EXPECT_THAT(ReadFile("/var/log/messages"),
                HasSubstr("/etc/scripts/udhcpc.script is not existed, errno 2 : No such file"));
    EXPECT_THAT(clients.Take(0), ElementsAre());
    EXPECT_TRUE(Eventually([&] { return Workers(daemon.Pid()) == 0; }));
    // 16 characters without an end are 15, and the session finds itself again.
    WriteFile("/etc/scripts/udhcpc.script", "");
    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(RequestStatus(kStart, StartOf(2, "abcdefghijklmnop", 1)), 0);
    EXPECT_THAT(clients.Take(2),
                testing::UnorderedElementsAre(HasSubstr("-i abcdefghijklmno "), "udhcpc abcdefghijklmno USR1"));
    EXPECT_EQ(RequestStatus(kStop, Of(2, "abcdefghijklmno")), 0);
}

// The registry forgets sessions when another one is removed. They go on all the same, and a start or stop ends them.
TEST(DhcpClient, WhatTheRegistryHasForgottenIsNotLost) {
    StandInClients clients;
    const Daemon daemon;
    for (const char* name : {"eth0", "eth1", "eth2"}) {
        ASSERT_EQ(RequestStatus(kStart, StartOf(2, name, 1)), 0);
        (void)clients.Take(1);
    }
    ASSERT_EQ(RequestStatus(kStop, Of(2, "eth2")), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre("kill -9"));
    ASSERT_EQ(RequestStatus(kStart, StartOf(2, "eth2", 1)), 0);  // removes the stale record, and with it eth0's is lost
    (void)clients.Take(1);
    EXPECT_EQ(Workers(daemon.Pid()), 3U);
    Listener listener("ipc_dhcpc_eth0_1");
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_EQ(listener.Next(), 0x505) << "it still reports";
    EXPECT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 9)), 0);
    EXPECT_THAT(clients.Take(2), testing::UnorderedElementsAre("udhcpc eth0 USR2", "udhcpc eth0 USR1"));
    EXPECT_EQ(Workers(daemon.Pid()), 3U) << "never two for one interface";
    for (const char* name : {"eth0", "eth1", "eth2"})
        EXPECT_EQ(RequestStatus(kStop, Of(2, name)), 0) << name;
    EXPECT_EQ(Workers(daemon.Pid()), 0U);
}

// A stop ends within a moment what waits in a report that nobody takes; what is no file neither stops nor spins it.
TEST(DhcpClient, StopIsQuickAndForeignFilesAreRemoved) {
    StandInClients clients;
    const Daemon daemon;
    ASSERT_EQ(RequestStatus(kStart, StartOf(2, "eth0", 1)), 0);
    ASSERT_EQ(mkfifo(kResultV4, 0666), 0);
    EXPECT_TRUE(Eventually([] { return !std::filesystem::exists(kResultV4); }));
    WriteFile("/tmp/precious", "leasesuccess\n");
    ASSERT_EQ(symlink("/tmp/precious", kResultV4), 0);
    EXPECT_TRUE(Eventually([] { return !std::filesystem::is_symlink(kResultV4); }));
    std::filesystem::create_directories(std::string(kResultV4) + "/full");
    std::this_thread::sleep_for(milliseconds(500));
    std::filesystem::remove_all(kResultV4);
    const std::string log = ReadFile("/var/log/messages");
    EXPECT_EQ(log.find("is no result file"), log.rfind("is no result file")) << "said once";
    EXPECT_EQ(ReadFile("/tmp/precious"), "leasesuccess\n");
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_TRUE(Eventually([] { return !std::filesystem::exists(kResultV4); })) << "and now nobody listens";
    const auto begin = steady_clock::now();
    EXPECT_EQ(RequestStatus(kStop, Of(2, "eth0")), 0);
    EXPECT_LT(steady_clock::now() - begin, seconds(2));
    EXPECT_EQ(Workers(daemon.Pid()), 0U);
}

TEST(DhcpClient, OfIpv6) {
    StandInClients clients;
    ASSERT_EQ(system("ip -6 route add default via fe80::99 dev eth0"), 0);
    const Daemon daemon;
    Listener listener("ipc_dhcpcv6_eth0_6_77");
    ASSERT_EQ(RequestStatus(kStart, StartOf(10, "eth0", 77)), 0);
    EXPECT_THAT(clients.Take(1),
                ElementsAre("udhcpc6 -i eth0 -s /etc/scripts/udhcpc6.script -p /tmp/udhcpc6eth0.pid blocked 10 12 15"));
    WriteResult(kResultV6,
                "leasesuccess\nlocal 2001:db8::5\nprefix 64\nleasetime 600\ndnsserver 2001:db8::53\nroute 0::0\n");
    TNetDhcpcLease expected{};
    strcpy(expected.achDevName, "eth0");
    expected.tAddr = Address(AF_INET6, 10, "2001:db8::5");
    expected.tRouter = Address(AF_INET6, 10, "fe80::99");
    expected.dwPrefixLen = 64;
    expected.dwLeaseTime = 600;
    expected.dwDnsNum = 1;
    expected.atDns[0] = Address(AF_INET6, 10, "2001:db8::53");
    TNetDhcpcLease lease{};
    EXPECT_EQ(listener.Next(lease), 0x505);
    EXPECT_EQ(Bytes(lease), Bytes(expected));
    // The file stays for two seconds. One that takes its place meanwhile is not removed with it.
    EXPECT_TRUE(std::filesystem::exists(kResultV6));
    WriteResult(kResultV6, "leasefailbydad\n");
    EXPECT_EQ(listener.Next(), 0x506);
    EXPECT_TRUE(Eventually([] { return !std::filesystem::exists(kResultV6); }));
    WriteResult(kResultV6, "timeout\n");
    EXPECT_EQ(listener.Next(500), -1);
    EXPECT_TRUE(std::filesystem::exists(kResultV6)) << "left until the script replaces it";
    std::filesystem::remove(kResultV6);
    // A client that has died, and another wish for DNS servers.
    EndProcess(StandInClients::PidOf("udhcpc6", "eth0"));
    ASSERT_EQ(RequestStatus(kStartEx, StartExOf(10, "eth0", 0, 77)), 0);
    EXPECT_THAT(clients.Take(1),
                ElementsAre("udhcpc6 -i eth0 -s /etc/scripts/udhcpc6.script -o -p /tmp/udhcpc6eth0.pid "
                            "blocked 10 12 15"));
    EXPECT_EQ(Workers(daemon.Pid()), 1U);
    WriteResult(kResultV6, "leasesuccess\ndnsserver 2001:db8::53\nroute fe80::1\n");
    EXPECT_EQ(listener.Next(lease), 0x505);
    EXPECT_EQ(lease.dwDnsNum, 0U);
    EXPECT_EQ(Bytes(lease.tRouter), Bytes(Address(AF_INET6, 10, "fe80::1")));
    EXPECT_EQ(RequestStatus(kStart, StartOf(10, "eth0", 77)), 0);
    EXPECT_THAT(clients.Take(1), ElementsAre("udhcpc6 eth0 USR1"));
    EndProcess(StandInClients::PidOf("udhcpc6", "eth0"));
    EXPECT_EQ(RequestStatus(kStop, Of(10, "eth0")), 0) << "a client that has died is a success here";
    EXPECT_EQ(Workers(daemon.Pid()), 0U);
}

// Starts and stops in every order while results are written: nothing is left behind.
TEST(DhcpClient, StormsLeaveNothingBehind) {
    StandInClients clients;
    const Daemon daemon;
    const auto descriptors = Descriptors(daemon.Pid());
    const char* const wanted = getenv("TESSEL_STORM_SECONDS");
    const auto end = steady_clock::now() + seconds(wanted != nullptr ? atoi(wanted) : 8);
    std::atomic<bool> isOver{false};
    std::thread script([&] {
        const char* const texts[] = {"leasesuccess\nlocal=1.2.3.4\n", "deconfig\n", "timeout\n", "\xff\xfe", "nak\n"};
        for (unsigned i = 0; !isOver; ++i) {
            WriteResult(i % 2 == 0 ? "/tmp/udhcpc.confeth0" : "/tmp/udhcpc.confeth1", texts[i % 5]);
            std::this_thread::sleep_for(milliseconds(3));
        }
    });
    srand(7);
    int requests = 0;
    while (steady_clock::now() < end) {
        const char* const name = rand() % 2 == 0 ? "eth0" : "eth1";
        if (rand() % 3 != 0) {
            EXPECT_EQ(RequestStatus(kStart, StartOf(2, name, rand() % 2)), 0);
        } else {
            (void)RequestStatus(kStop, Of(2, name));
        }
        EXPECT_LE(Workers(daemon.Pid()), 2U);
        ++requests;
    }
    for (const char* name : {"eth0", "eth1"})
        EXPECT_EQ(RequestStatus(kStop, Of(2, name)), 0) << name;
    for (const char* name : {"eth0", "eth1"})
        EXPECT_EQ(RequestStatus(kStop, Of(2, name)), 0) << name;
    isOver = true;
    script.join();
    EXPECT_GT(requests, 10);
    EXPECT_EQ(Workers(daemon.Pid()), 0U);
    EXPECT_EQ(Descriptors(daemon.Pid()), descriptors);
    for (const char* name : {"eth0", "eth1"})
        EXPECT_EQ(StandInClients::PidOf("udhcpc", name), 0) << name;
}

}  // namespace
}  // namespace tessel::test
