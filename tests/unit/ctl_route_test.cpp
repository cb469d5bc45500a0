// Routes, tables and rules: what the daemon answers against what the kernel of the sandbox has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>

#include <csignal>
#include <sstream>

#include "client/ctl/routes.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using namespace tessel::test;
using nlohmann::ordered_json;
using tessel::ctl::KernelRoutes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

// Every test starts from the same kernel, whether or not it has a sandbox of its own.
class Routes : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* line : {"ip addr flush dev eth0 scope global", "ip route flush table 100", "ip rule flush",
                                 "ip rule add pref 32766 table 254", "ip rule add pref 32767 table 253"})
            (void)RunInSandbox(line);
        Prepare({"ip addr add 192.168.1.20/24 dev eth0", "ip addr add 2001:db8::5/64 dev eth0 nodad"});
    }
};

std::vector<std::string> Texts(int family, u32 table) {
    std::vector<std::string> texts;
    for (const auto& route : KernelRoutes(family, table))
        texts.push_back(RouteText(route) + (route.isLearnt ? " learnt" : ""));
    return texts;
}

TEST_F(Routes, OfTheKernelAreReadFromItsOwnWords) {
    Prepare({"ip route add default via 192.168.1.1 dev eth0 metric 10",
             "ip route add default metric 20 nexthop via 192.168.1.2 dev eth0 nexthop via 192.168.1.3 dev eth0",
             "ip route add 10.2.0.0/16 via inet6 2001:db8::9 dev eth0", "ip route add unreachable 10.9.0.0/16",
             "ip route add 10.3.0.0/16 via 192.168.1.254 table 1000", "ip -6 route add 2001:db8:2::/48 via 2001:db8::1",
             "ip -6 route add default via 2001:db8::1 proto ra",
             "ip -6 route add 2001:db8:3::/48 dev eth0 expires 100"});
    EXPECT_THAT(Texts(2, 254),
                ElementsAre("default via 192.168.1.1 dev eth0 metric 10", "default via 192.168.1.2 dev eth0 metric 20",
                            "10.2.0.0/16 via 2001:db8::9 dev eth0", "192.168.1.0/24 dev eth0"));
    EXPECT_THAT(Texts(11, 1000), ElementsAre("10.3.0.0/16 via 192.168.1.254 dev eth0 table 1000"));
    EXPECT_THAT(Texts(10, 254), IsSupersetOf({"2001:db8:2::/48 via 2001:db8::1 dev eth0 metric 1024",
                                              "default via 2001:db8::1 dev eth0 metric 1024 learnt",
                                              "2001:db8:3::/48 dev eth0 metric 1024 learnt"}));
    EXPECT_THAT(Texts(11, 4711), IsEmpty());
}

TEST_F(Routes, RulesAreShownAsTheKernelHasThem) {
    Prepare({"ip rule add from 192.168.1.0/24 fwmark 16 pref 30 table 1000",
             "ip rule add from 192.168.1.0/24 fwmark 0/0xff pref 31 table 1000",
             "ip rule add to 1.2.3.4 pref 32 table 99", "ip rule add from 1.1.1.1 pref 34 blackhole",
             "ip -6 rule add from 2001:db8::/32 pref 35 table 5"});
    EXPECT_EQ(RunLine("-g pref,from,prefix_length,fwmark,table,other_conditions rule show -4").out,
              "0\t0.0.0.0\t0\t\t255\tfalse\n"
              "30\t192.168.1.0\t24\t16\t1000\tfalse\n"
              "31\t192.168.1.0\t24\t0\t1000\ttrue\n"
              "32\t0.0.0.0\t0\t\t99\ttrue\n"
              "34\t1.1.1.1\t32\t\t\tfalse\n"
              "32766\t0.0.0.0\t0\t\t254\tfalse\n"
              "32767\t0.0.0.0\t0\t\t253\tfalse\n");
    EXPECT_THAT(RunLine("rule --no-header").out, HasSubstr("\n30     192.168.1.0/24  0x10  1000  inet\n31"));
    EXPECT_THAT(RunLine("rule show -6 --no-header").out, HasSubstr("\n35     2001:db8::/32  -  5    inet6\n"));
    Prepare({"ip -6 rule del pref 35"});
}

// So many routes of a daemon: 10.1.0.0/16, 10.2.0.0/16 ...
std::string RoutesReply(u32 count, std::optional<TNetGateway> gateway = {}) {
    TNetRouteGetAllReply reply{};
    reply.tRoutes.dwNum = count;
    for (u32 i = 0; i < count; ++i) {
        reply.tRoutes.atRoute[i] = ToldRoute(static_cast<u8>(i + 1), 5);
        if (gateway) reply.tRoutes.atRoute[i].tGateway = *gateway;
    }
    return FakeDaemon::Message(reply);
}

TEST_F(Routes, AFullListIsMarkedAndTheKernelCompletesIt) {
    u32 told = 2;
    FakeDaemon daemon([&](const SeenRequest&) { return RoutesReply(told); });
    EXPECT_EQ(
        RunLine("route show -4 -j").out,
        "{\"routes\":[\n "
        R"({"destination":"10.1.0.0","prefix_length":16,"gateway":"192.168.1.254","interface":"eth0","metric":5,"family":"inet","source":"daemon"},)"
        "\n "
        R"({"destination":"10.2.0.0","prefix_length":16,"gateway":"192.168.1.254","interface":"eth0","metric":5,"family":"inet","source":"daemon"}],"truncated":false})"
        "\n");
    Prepare({"ip route add default via 192.168.1.1", "ip route add 10.1.0.0/16 via 192.168.1.254 metric 5"});
    EXPECT_EQ(RunLine("route -4 --kernel").out,
              "DESTINATION     GATEWAY        INTERFACE  METRIC  SOURCE\n"
              "10.1.0.0/16     192.168.1.254  eth0       5       daemon\n"
              "10.2.0.0/16     192.168.1.254  eth0       5       daemon\n"
              "default         192.168.1.1    eth0       0       kernel\n"
              "192.168.1.0/24  -              eth0       0       kernel\n");
    told = 10;
    EXPECT_THAT(RunLine("route show -4").err, HasSubstr("10 routes are shown, there may be more (--kernel shows all)"));
    EXPECT_EQ(ordered_json::parse(RunLine("route show -4 -j").out)["truncated"], true);
    const auto whole = ordered_json::parse(RunLine("route show -4 -j --kernel").out);
    EXPECT_EQ(whole["truncated"], false);
    EXPECT_EQ(whole["routes"].back()["gateway"], nullptr);
}

TEST_F(Routes, AddressesOfTheKernelStandBesideThoseOfTheDaemon) {
    Prepare({"ip addr add 10.9.9.9/24 dev eth0"});
    FakeDaemon daemon(&DeviceAnswer);  // tells 192.168.1.20/24 and 2001:db8::/64
    EXPECT_EQ(RunLine("-g address,scope addr show dev eth0 -4").out, "192.168.1.20\tglobal\n2001:db8::\tglobal\n");
    EXPECT_EQ(RunLine("-g address,scope addr show dev eth0 -4 --kernel").out,
              "192.168.1.20\tglobal\n2001:db8::\tglobal\n10.9.9.9\t\n");
    EXPECT_THAT(RunLine("link show eth0 --kernel").out, HasSubstr("10.9.9.9/24"));
    EXPECT_THAT(RunLine("link show eth0").out, Not(HasSubstr("10.9.9.9/24")));
}

TEST_F(Routes, AFullAddressListIsCompletedToo) {
    FakeDaemon daemon([](const SeenRequest&) {
        TNetIpaddrGetReply reply{};
        reply.tIfaceIp.dwNum = TESSEL_ADDRESSES_MAX;
        for (auto& entry : reply.tIfaceIp.atIp)
            entry = {4, 2, 0, {192, 168, 1, 20}, 24, 0, 0};
        return FakeDaemon::Message(reply);
    });
    EXPECT_THAT(RunLine("addr show dev eth0").err, HasSubstr("16 addresses are shown, there may be more (--kernel"));
    for (const bool asksKernel : {false, true}) {
        const auto shown =
            ordered_json::parse(RunLine(asksKernel ? "addr dev eth0 -j --kernel" : "addr dev eth0 -j").out);
        EXPECT_EQ(shown[0]["truncated"], !asksKernel);
        EXPECT_EQ(shown[0]["addresses"].size() > TESSEL_ADDRESSES_MAX, asksKernel) << "eth0 has IPv6 addresses as well";
    }
}

TEST_F(Routes, AGatewayThatTheDaemonCannotReadIsStillTheSameRoute) {
    Prepare({"ip route add 10.1.0.0/16 via inet6 2001:db8::9 dev eth0 metric 5"});
    FakeDaemon daemon([](const SeenRequest&) { return RoutesReply(1, TNetGateway{}); });
    EXPECT_EQ(RunLine("-g destination,gateway,source route show -4 --kernel").out,
              "10.1.0.0\t\tdaemon\n192.168.1.0\t\tkernel\n");
}

TEST_F(Routes, ChangesAreSentCarriedOutAndReadBack) {
    FakeDaemon daemon(&DeviceAnswer);
    ExpectAll({
        {"route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5", 0,
         "10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5   added\n"},
        {"route add 10.1.0.0/16 via 192.168.1.254 metric 9", 0, "dev eth0 metric 9   added\n"},
        {"route add 10.1.0.0/16 via 192.168.1.254 table 100", 0, "dev eth0 table 100   added\n"},
        {"route add 2001:db8:9::/48 via 2001:db8::1", 0, "dev eth0 metric 1024   added\n"},
        {"route metric 10.1.0.0/16 via 192.168.1.254 dev eth0 9", 2, "would be deleted and not added again"},
        {"route del 10.1.0.0/16 via 192.168.1.254 metric 9", 2, "would delete the one of metric 5"},
        {"route metric 10.1.0.0/16 via 192.168.1.254 dev eth0 7", 0, "still there: 10.1.0.0/16 via 192.168.1.254 dev"},
        {"route del 10.1.0.0/16 via 192.168.1.254", 0, "dev eth0 metric 7   deleted\nnote: still there: 10.1.0.0/16"},
        {"route del 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 9", 0, "metric 9   deleted\n"},
        {"route del 10.1.0.0/16 via 192.168.1.254 table 100", 0, "table 100   deleted\n"},
        {"route del 2001:db8:9::/48 via 2001:db8::1", 0, "metric 1024   deleted\n"},
        {"table add 100", 0, "from all table 100   added\n"},
        {"rule add from 192.168.1.0/24 table 100", 0, "from 192.168.1.0/24 table 100   added\n"},
        {"rule add from 192.168.1.0/24 fwmark 0x10 pref 30 table 100", 0, "pref 30 from 192.168.1.0/24 fwmark 0x10"},
        {"table add 100", 0, "note: there is already pref"},
        {"table del 100", 0, "from all table 100   deleted\n"},
        {"table del 100", 2, "the kernel would delete pref 30 from 192.168.1.0/24 fwmark 0x10 table 100"},
        {"rule del from 10.0.0.0/8 pref 30 table 100", 2, "the kernel would delete pref 30"},
        {"rule del from 0.0.0.0/0 table 100", 2, "the kernel would delete pref 30"},
        {"rule del from 10.0.0.0/8 pref 30 table 100 --force", 0,
         "pref 30 from 192.168.1.0/24 fwmark 0x10 table 100   deleted\n"},
        {"rule del from 192.168.1.0/24 table 100", 0, "from 192.168.1.0/24 table 100   deleted\n"},
        {"table del 100", 0, "from all table 100   deleted\n"},
        {"table add 255", 0, "table 255 is one of the kernel's own"},
    });
    EXPECT_THAT(Texts(2, 254), ElementsAre("192.168.1.0/24 dev eth0"));
    const auto seen = daemon.Requests();
    EXPECT_EQ(seen[0].type, 0x10BU);
    EXPECT_EQ(seen[0].payload.size(), 80U) << "no table, the main one";
    EXPECT_EQ(seen[2].payload.size(), 84U);
    const auto rule = std::find_if(seen.begin(), seen.end(), [](const auto& one) { return one.type == 0x123; }) + 1;
    ASSERT_EQ(rule->payload.size(), sizeof(TNetIpRule));
    const auto record = RecordOf<TNetIpRule>(*rule);
    EXPECT_EQ(tessel::ctl::NetworkText(record.tSrcIpNet, record.nPrefixLen), "192.168.1.0/24");
    EXPECT_EQ(record.nFwmark, 16);
    EXPECT_EQ(record.nPref, 30);
    EXPECT_EQ(record.nTable, 100);
}

TEST_F(Routes, WhatDidNotHappenIsFound) {
    Prepare({"ip route add 10.1.0.0/16 via 192.168.1.254", "ip rule add pref 40 table 100"});
    FakeDaemon daemon(&IdleAnswer);
    ExpectAll({{"route add 10.2.0.0/16 via 192.168.1.254", 5, "the kernel has no such route"},
               {"route del 10.1.0.0/16 via 192.168.1.254", 5, "still there"},
               {"route metric 10.1.0.0/16 via 192.168.1.254 dev eth0 5", 5, "the kernel has no such route"},
               {"table add 100", 5, "no such rule was added"},
               {"table del 100", 5, "no rule is gone"},
               {"rule add from 10.0.0.0/8 table 100", 5, "no such rule was added"},
               {"rule add from 0.0.0.0/0 fwmark 1 table 100", 5, "no such rule was added"},
               {"rule del pref 40", 5, "no rule is gone"}});
}

TEST_F(Routes, CausesAreNamed) {
    Prepare({"ip route add 10.1.0.0/16 via 192.168.1.254 metric 5", "ip rule add from 10.0.0.0/8 pref 40 table 100",
             "ip link set eth2 down"});
    FakeDaemon daemon(&FailingAnswer);
    ExpectAll({
        {"route add 10.1.0.0/16 via 192.168.1.1 dev eth0 metric 5", 1,
         "there is already 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5."},
        {"route add 10.2.0.0/16 via 192.168.9.1 dev eth0", 1, "192.168.9.1 is in no network of eth0 (192.168.1.20/24)"},
        {"route add 10.2.0.0/16 via 192.168.9.1", 1, "is in no network of any interface (127.0.0.1/8  192.168.1.20/24"},
        {"route add 10.2.0.0/16 via 192.168.1.1 dev eth9", 1, "there is no interface eth9"},
        {"route add 10.2.0.0/16 via 192.168.1.1 dev eth2", 1, "eth2 is down"},
        {"route add 2001:db8:9::/48 via fe80::1", 1, "fe80::1 is on every link: name the interface"},
        {"route add 2001:db8:9::/48 via fe80::1 dev eth0", 1, "its log says why"},
        {"route del 10.2.0.0/16 via 192.168.1.254", 1, "there is no such route"},
        {"route del 10.1.0.0/16 via 192.168.1.1", 1, "there is only 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5"},
        {"route metric 10.1.0.0/16 via 192.168.1.254 dev eth9 7", 1, "there is no interface eth9"},
        {"table del 101", 1, "there is no such rule"},
        {"rule del pref 41", 1, "there is no such rule"},
        {"rule add from 10.0.0.0/8 table 100", 1, "there is already pref 40 from 10.0.0.0/8 table 100"},
    });
    Prepare({"ip link set eth2 up"});
}

TEST_F(Routes, AreRefusedBeforeAnythingIsSent) {
    FakeDaemon daemon(&DeviceAnswer);
    ExpectAll({{"route add 10.1.0.0/16 via 2001:db8::1", 2, "two families"},
               {"route add 10.1.2.3/16 via 192.168.1.1", 2, "is no network but an address in 10.1.0.0/16"},
               {"route add 10.1.0.0/16 via 192.168.1.1/24", 2, "is no address"},
               {"route add 10.1.0.0/16 via 0.0.0.0", 2, "stands for no gateway"},
               {"route add 10.1.0.0/16 via 192.168.1.1 metric 2147483648", 2, "a metric is a number"},
               {"route add 10.1.0.0/16 via 192.168.1.1 table 0", 2, "a table is a number from 1"},
               {"route add 10.1.0.0/16", 2, "via A is missing"},
               {"route metric 10.1.0.0/16 via 192.168.1.1 5", 2, "dev IF is missing"},
               {"table add 0", 2, "a table is a number from 1"},
               {"table del 2147483648", 2, "a table is a number from 1"},
               {"rule add from 2001:db8::/32 table 5", 2, "IPv4 rules only"},
               {"rule add from 10.0.0.0/8 pref 0 table 5", 2, "pref is a number from 1"},
               {"rule add from 10.0.0.0/8 fwmark 0x80000000 table 5", 2, "fwmark is a number from 0"},
               {"rule add from 10.0.0.0/8 table 0", 2, "table is a number from 1"},
               {"rule del", 2, "usage"}});
    EXPECT_TRUE(daemon.Requests().empty());
}

// A process with a network of its own that answers requests until this ends.
class ForeignDaemon {
  public:
    ForeignDaemon() {
        if (child_ == 0) {
            if (unshare(CLONE_NEWNET) != 0) _exit(1);
            const FakeDaemon daemon(&DeviceAnswer);
            while (true)
                pause();
        }
        EXPECT_TRUE(Eventually(&tessel_daemon_is_listening));
    }
    ~ForeignDaemon() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        unlink(TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API);
    }
    ForeignDaemon(const ForeignDaemon&) = delete;
    ForeignDaemon& operator=(const ForeignDaemon&) = delete;

  private:
    pid_t child_ = fork();
};

TEST_F(Routes, OfAnotherNetworkAreNotReadHere) {
    const ForeignDaemon daemon;
    ExpectAll({{"table add 100", 0, "not read back: the daemon lives in another network namespace"},
               {"rule add from 10.0.0.0/8 pref 9 table 7", 0, "not read back"},
               {"rule add from 10.0.0.0/8 pref 9 table 7", 1, "its log says why"},
               {"route del 10.1.0.0/16 via 192.168.1.254", 1, "its log says why"},
               {"route add 10.1.0.0/16 via 127.0.0.1", 1, "its log says why"},
               {"route show --kernel", 0, "the kernel was not asked: the daemon lives in another network namespace"}});
    EXPECT_EQ(ordered_json::parse(RunLine("rule add from 10.0.0.0/8 table 7 -j").out)["pref"], nullptr);
    EXPECT_THAT(RunLine("addr show dev eth0 --kernel").err, HasSubstr("the kernel was not asked"));
}

}  // namespace
