// DHCP client sessions: what is run, what is reported to whom, and that nothing is left behind.

#include <atomic>
#include <random>

#include "tests/support/daemon.h"
#include "tests/support/dhcp.h"
#include "tests/support/listener.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::filesystem::exists;

constexpr char kResultV4[] = "/tmp/udhcpc.confeth0";
constexpr char kResultV6[] = "/tmp/udhcpc6.confeth0";
constexpr char kStartLine[] = "udhcpc -i eth0 -s /etc/scripts/udhcpc.script -p /tmp/udhcpceth0.pid blocked 10 12 15";

std::string Of(u16 family, const std::string& name) {
    return std::string(Bytes(family)) + Padded(name, 16);
}
i32 Start(u16 family, const std::string& name, i32 pid) {
    return RequestStatus(0x501, Of(family, name).append(Bytes(pid)));
}
i32 StartWithoutDns(u16 family, const std::string& name, i32 pid) {
    return RequestStatus(0x508, Of(family, name).append(2, '\0').append(Bytes(pid)));
}
i32 Stop(u16 family, const std::string& name) {
    return RequestStatus(0x502, Of(family, name));
}

// The next report has to be this lease on eth0. `other` is the family of router and DNS servers.
void ExpectLease(Listener& listener, const char* address, u16 other, const char* router, u32 lease,
                 const std::vector<const char*>& dns) {
    const u32 prefix = other == 0 ? 24 : 64;
    TNetDhcpcLease expected{"eth0", Address(address), Address(router), prefix, lease, 0, {}};
    expected.tRouter.wSinFamily = other;
    for (const char* server : dns) {
        expected.atDns[expected.dwDnsNum] = Address(server);
        expected.atDns[expected.dwDnsNum++].wSinFamily = other;
    }
    EXPECT_EQ(listener.Next(), 0x505);
    EXPECT_EQ(std::string(listener.event.payload, listener.event.payload + listener.event.size), Bytes(expected));
}

bool GoesSoon(const char* path) {
    return Eventually([&] { return !exists(std::filesystem::symlink_status(path)); });
}

// Everybody's sessions have ended when a test has.
class DhcpClient : public testing::Test {
  protected:
    ~DhcpClient() override {
        EXPECT_EQ(Workers(), 0);
    }
    std::ptrdiff_t Workers() const {
        return Threads(daemon.Pid(), "TesselDhcpc");
    }
    // Once what watches the interfaces has opened its sockets, too.
    std::ptrdiff_t SettledDescriptors() const {
        std::ptrdiff_t before = -1;
        std::ptrdiff_t now = 0;
        EXPECT_TRUE(Eventually([&] {
            now = Descriptors(daemon.Pid());
            std::this_thread::sleep_for(300ms);
            return std::exchange(before, now) == now;
        }));
        return now;
    }
    // The status of a request, and what the programs have noted since the last one.
    void Expect(i32 status, i32 expected, const std::string& noted) {
        EXPECT_EQ(status, expected) << noted;
        EXPECT_EQ(clients.Take(Split(noted).size()), noted);
    }
    static void EndClient(const char* program) {
        const pid_t pid = StandInClients::PidOf(program, "eth0");
        ASSERT_GT(pid, 0);
        kill(pid, SIGKILL);
        EXPECT_TRUE(Eventually([&] {
            (void)waitpid(pid, nullptr, WNOHANG);  // this process inherits what the daemon leaves to itself
            return kill(pid, 0) != 0;
        }));
    }

    StandInClients clients;
    const Daemon daemon;
};

TEST_F(DhcpClient, LeasesAreReportedByteForByte) {
    Listener listener("ipc_dhcpc_eth0_77");
    Expect(Start(2, "eth0", 77), 0, kStartLine);
    WriteResult(kResultV4,
                "leasesuccess\nlocal=192.168.1.20\nsubnet=255.255.255.0\nrouter=192.168.1.1\ndns=8.8.8.8\n"
                "dns=1.1.1.1\nleasetime=3600\n");
    ExpectLease(listener, "192.168.1.20", 0, "192.168.1.1", 3600, {"8.8.8.8", "1.1.1.1"});
    const std::pair<const char*, i64> rows[] = {{"deconfig\n", 0},      {"deconfig\n", -1}, {"timeout\n", -1},
                                                {"leasefail\n", 0x506}, {"nak\n", 0x506},   {"what is this\n", 0}};
    for (const auto& [text, type] : rows) {
        WriteResult(kResultV4, text);
        EXPECT_EQ(listener.Next(type < 0 ? 400 : 5000), type) << text;
        EXPECT_TRUE(GoesSoon(kResultV4)) << text;
    }
    Expect(Stop(2, "eth0"), 0, "kill -9");
}

TEST_F(DhcpClient, OneWorkerWhateverHappensToTheClient) {
    const auto descriptors = SettledDescriptors();
    Listener second("ipc_dhcpc_eth0_78");
    Expect(Start(2, "eth0", 77), 0, kStartLine);
    // What runs is asked to renew, and reports to whoever asked last.
    Expect(Start(2, "eth0", 78), 0, "udhcpc eth0 USR1");
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_EQ(second.Next(), 0x505);
    EndClient("udhcpc -i");
    Expect(Start(2, "eth0", 78), 0, kStartLine);
    EXPECT_EQ(Workers(), 1);
    EndClient("udhcpc -i");
    EXPECT_EQ(Stop(2, "eth0"), -1) << "it had died";
    EXPECT_EQ(Stop(2, "eth0"), 0) << "nothing is left";
    EXPECT_EQ(Workers(), 0);
    // One that somebody else has started is released and renewed by a start, and ended by a stop without a session.
    Expect(system("udhcpc -i eth0 &"), 0, "udhcpc -i eth0 blocked");
    Expect(Start(2, "eth0", 78), 0, "udhcpc eth0 USR1; udhcpc eth0 USR2");
    Expect(Stop(2, "eth0"), 0, "kill -9");
    Expect(system("udhcpc -i eth0 &"), 0, "udhcpc -i eth0 blocked");
    EXPECT_EQ(Stop(2, "eth0"), 0);
    EXPECT_TRUE(Eventually([] { return StandInClients::PidOf("udhcpc -i", "eth0") == 0; }));
    EXPECT_EQ(SettledDescriptors(), descriptors);
}

TEST_F(DhcpClient, StopEndsTheClientsHelpersAndNoOther) {
    for (const std::string name : {"eth1", "eth10"})
        Expect(StartWithoutDns(2, name, 5), 0,
               "udhcpc -i " + name + " -o -O router subnet -s /etc/scripts/udhcpc.script -p /tmp/udhcpc" + name +
                   ".pid blocked 10 12 15");
    ASSERT_EQ(system("for helper in zcip udhcpc.script; do perl -e 'sleep 100' $helper eth1 & done; sleep 0.3"), 0);
    Expect(Stop(2, "eth1"), 0, "kill -9; kill -9; kill -9");
    for (const char* program : {"udhcpc -i", "zcip", "udhcpc.script"})
        EXPECT_TRUE(Eventually([&] { return StandInClients::PidOf(program, "eth1") == 0; })) << program;
    EXPECT_GT(StandInClients::PidOf("udhcpc -i", "eth10"), 0);
    Expect(Stop(2, "eth10"), 0, "kill -9");
}

TEST_F(DhcpClient, RefusesWhatMakesNoSense) {
    for (const char* name : {"", "-V", "a/b", "..", "two words", "a\x16"})
        EXPECT_TRUE(Start(2, name, 1) == -1 && Stop(2, name) == 0) << name;
    EXPECT_TRUE(Start(7, "eth0", 1) == -1 && Stop(7, "eth0") == 0);
    for (const u16 family : {u16{2}, u16{10}})
        EXPECT_EQ(RequestStatus(0x507, Of(family, "eth0")), -1) << "renewed it is not";
    EXPECT_EQ(Start(10, "eth7", 1), -1) << "no link-local address";
    EXPECT_TRUE(IsLogged("fe80::/64 not exist on eth7"));
    std::filesystem::remove("/etc/scripts/udhcpc.script");
    EXPECT_EQ(Start(2, "eth0", 1), -1);
    EXPECT_TRUE(IsLogged("/etc/scripts/udhcpc.script is not existed, errno 2 : No such file"));
    EXPECT_EQ(clients.Take(0), "");
    EXPECT_TRUE(Eventually([&] { return Workers() == 0; }));
    // 16 characters without an end are 15, and the session finds itself again.
    WriteFile("/etc/scripts/udhcpc.script", "");
    EXPECT_EQ(Start(2, "abcdefghijklmnop", 1) + Start(2, "abcdefghijklmnop", 1), 0);
    EXPECT_THAT(clients.Take(2), testing::MatchesRegex("udhcpc -i abcdefghijklmno [^;]*; udhcpc abcdefghijklmno USR1"));
    EXPECT_EQ(Stop(2, "abcdefghijklmno"), 0);
}

// The registry forgets sessions when another one is removed. They go on all the same, and a start or stop ends them.
TEST_F(DhcpClient, WhatTheRegistryHasForgottenIsNotLost) {
    for (const char* name : {"eth0", "eth1", "eth2"}) {
        ASSERT_EQ(Start(2, name, 1), 0);
        (void)clients.Take(1);
    }
    Expect(Stop(2, "eth2"), 0, "kill -9");
    ASSERT_EQ(Start(2, "eth2", 1), 0);  // removes the stale record, and with it eth0's is lost
    (void)clients.Take(1);
    Listener listener("ipc_dhcpc_eth0_1");
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_EQ(listener.Next(), 0x505) << "it still reports";
    Expect(Start(2, "eth0", 9), 0, "udhcpc eth0 USR1; udhcpc eth0 USR2");
    EXPECT_EQ(Workers(), 3) << "never two for one interface";
    for (const char* name : {"eth0", "eth1", "eth2"})
        EXPECT_EQ(Stop(2, name), 0) << name;
}

// A stop ends within a moment what waits in a report that nobody takes; what is no file neither stops nor spins it.
TEST_F(DhcpClient, StopIsQuickAndForeignFilesAreRemoved) {
    ASSERT_EQ(Start(2, "eth0", 1), 0);
    ASSERT_EQ(mkfifo(kResultV4, 0666), 0);
    EXPECT_TRUE(GoesSoon(kResultV4));
    WriteFile("/tmp/precious", "leasesuccess\n");
    ASSERT_EQ(symlink("/tmp/precious", kResultV4), 0);
    EXPECT_TRUE(GoesSoon(kResultV4));
    std::filesystem::create_directories(std::string(kResultV4) + "/full");
    std::this_thread::sleep_for(500ms);
    std::filesystem::remove_all(kResultV4);
    EXPECT_TRUE(IsLogged("is no result file"));
    EXPECT_EQ(Split(ReadFile("/var/log/messages"), "is no result file").size(), 2U) << "said once";
    EXPECT_EQ(ReadFile("/tmp/precious"), "leasesuccess\n");
    WriteResult(kResultV4, "leasesuccess\n");
    EXPECT_TRUE(GoesSoon(kResultV4)) << "and now nobody listens";
    const auto begin = steady_clock::now();
    EXPECT_EQ(Stop(2, "eth0"), 0);
    EXPECT_LT(steady_clock::now() - begin, 2s);
}

TEST_F(DhcpClient, OfIpv6) {
    const std::string line = "udhcpc6 -i eth0 -s /etc/scripts/udhcpc6.script ";
    ASSERT_EQ(system("ip -6 route add default via fe80::99 dev eth0"), 0);
    Listener listener("ipc_dhcpcv6_eth0_6_77");
    Expect(Start(10, "eth0", 77), 0, line + "-p /tmp/udhcpc6eth0.pid blocked 10 12 15");
    const std::string lease = "leasesuccess\nlocal 2001:db8::5\nprefix 64\nleasetime 600\ndnsserver 2001:db8::53\n";
    WriteResult(kResultV6, lease + "route 0::0\n");
    ExpectLease(listener, "2001:db8::5", 10, "fe80::99", 600, {"2001:db8::53"});
    // The file stays for two seconds. One that takes its place meanwhile is not removed with it.
    EXPECT_TRUE(exists(kResultV6));
    WriteResult(kResultV6, "leasefailbydad\n");
    EXPECT_EQ(listener.Next(), 0x506);
    EXPECT_TRUE(GoesSoon(kResultV6));
    WriteResult(kResultV6, "nak\n");
    EXPECT_EQ(listener.Next(2000), -1);
    const std::size_t reads = Split(ReadFile("/var/log/messages"), "maybe dhcp server has no ip to offer").size() - 1;
    EXPECT_TRUE(reads >= 3 && reads <= 5) << reads << ": after 0.1, 0.3, 0.7 and 1.5 s";
    WriteFile(kResultV6, "timeout\n");
    EXPECT_EQ(listener.Next(50), -1);
    WriteFile(kResultV6, "leasefailbydad\n");
    EXPECT_EQ(listener.Next(700), 0x506) << "sooner than the other one would have been read again";
    EXPECT_TRUE(GoesSoon(kResultV6));
    // A client that has died, and another wish for DNS servers.
    EndClient("udhcpc6");
    Expect(StartWithoutDns(10, "eth0", 77), 0, line + "-o -p /tmp/udhcpc6eth0.pid blocked 10 12 15");
    EXPECT_EQ(Workers(), 1);
    WriteResult(kResultV6, lease + "route fe80::1\n");
    ExpectLease(listener, "2001:db8::5", 10, "fe80::1", 600, {});
    Expect(Start(10, "eth0", 77), 0, "udhcpc6 eth0 USR1");
    EndClient("udhcpc6");
    EXPECT_EQ(Stop(10, "eth0"), 0) << "a client that has died is a success here";
}

// Starts and stops in every order while results are written: nothing is left behind.
TEST_F(DhcpClient, StormsLeaveNothingBehind) {
    const auto descriptors = SettledDescriptors();
    const char* const wanted = getenv("TESSEL_STORM_SECONDS");
    const auto end = steady_clock::now() + std::chrono::seconds(wanted != nullptr ? atoi(wanted) : 8);
    std::atomic<bool> isOver{false};
    std::thread script([&] {
        const char* const texts[] = {"leasesuccess\nlocal=1.2.3.4\n", "deconfig\n", "timeout\n", "\xff\xfe", "nak\n"};
        for (unsigned i = 0; !isOver; ++i) {
            WriteResult(i % 2 == 0 ? "/tmp/udhcpc.confeth0" : "/tmp/udhcpc.confeth1", texts[i % 5]);
            std::this_thread::sleep_for(3ms);
        }
    });
    auto draw = [random = std::mt19937(7)](unsigned sides) mutable { return static_cast<int>(random() % sides); };
    // A start may fail on a machine so busy that a killed client takes seconds to die.
    int started = 0;
    while (steady_clock::now() < end) {
        const char* const name = draw(2) == 0 ? "eth0" : "eth1";
        const bool isStop = draw(3) == 0;
        const i32 status = isStop ? Stop(2, name) : Start(2, name, draw(2));
        EXPECT_NE(status, 12345) << "no answer";
        started += !isStop && status == 0;
        EXPECT_LE(Workers(), 2);
    }
    for (const char* name : {"eth0", "eth1", "eth0", "eth1"})
        EXPECT_EQ(Stop(2, name), 0) << name;
    isOver = true;
    script.join();
    EXPECT_GT(started, 5);
    EXPECT_EQ(SettledDescriptors(), descriptors);
    for (const char* name : {"eth0", "eth1"})
        EXPECT_TRUE(Eventually([&] { return StandInClients::PidOf("udhcpc", name) == 0; })) << name;
}

}  // namespace
}  // namespace tessel::test
