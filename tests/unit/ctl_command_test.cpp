// The tool as a whole against a daemon that answers as the tests say.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/ctl/commands.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using namespace tessel::test;
using nlohmann::ordered_json;
using testing::HasSubstr;
using testing::StartsWith;

// Everything in the table except what goes on for ever.
std::vector<std::string> Examples() {
    std::vector<std::string> examples;
    for (const auto& command : tessel::ctl::Commands()) {
        if (command.verb != "follow" && command.verb != "watch") examples.emplace_back(command.example);
    }
    return examples;
}

TEST(Tool, EveryCommandAnswersInStrictJson) {
    PrepareKernel();
    for (const std::string& example : Examples()) {
        SCOPED_TRACE(example);
        {
            FakeDaemon daemon(&DeviceAnswer);
            const ToolRun run = RunLine(example + " -j -y");
            EXPECT_TRUE(ordered_json::accept(run.out)) << run.out;
            EXPECT_EQ(run.status, 0) << run.err;
        }
        FakeDaemon daemon(&FailingAnswer);
        const ToolRun run = RunLine(example + " -j -y");
        EXPECT_TRUE(run.out.empty() || ordered_json::accept(run.out)) << run.out;
        if (run.status == 0) continue;
        const auto error = ordered_json::parse(run.err);
        EXPECT_EQ(error["exit"], run.status);
        EXPECT_FALSE(error["message"].get<std::string>().empty());
    }
    unlink("/tmp/tesseldebug");
}

TEST(Tool, ADryRunChangesNothingAndAsksForPrioritiesAlone) {
    WriteFile("/tmp/rules", kNoRules);
    const auto state = [] {
        std::string text;
        for (const char* line : {"ip link", "ip -4 addr", "ip -6 addr show scope global", "ip route", "ip rule",
                                 "ip neigh show nud permanent", "iptables -S", "ip6tables -S"})
            text += tessel::ctl::CaptureTool(Words(line)).text;
        return text;
    };
    const std::string before = state();
    FakeDaemon daemon(&DeviceAnswer);
    for (const std::string& example : Examples()) {
        EXPECT_EQ(RunLine(example + " -n").status, 0) << example;
        EXPECT_TRUE(ordered_json::accept(RunLine(example + " -n -j").out)) << example;
    }
    for (const auto& message : tessel::ctl::Messages()) {
        for (const char* data : {"6574683000000000000000000000000014050000", "02006574683000", "01000000"})
            ExpectStatus(0, {fmt::format("-n raw {} {}", message.name, data).c_str()});
    }
    EXPECT_EQ(state(), before);
    EXPECT_NE(access("/tmp/tesseldebug", F_OK), 0);
    for (const SeenRequest& request : daemon.Requests())
        EXPECT_EQ(request.type, TESSEL_CMD_PRIORITY_GET);
    ExpectAll({{"addr show dev eth0 -n -6", 0,
                "interface eth0   family inet6, 18 bytes\nruns     ip -6 addr show dev eth0\n"},
               {"-n route metric 2001:db8:9::/48 via fe80::1 dev eth0 7", 0,
                "route del 2001:db8:9::/48 via fe80::1 dev eth0\nruns     ip -6 route add 2001:db8:9::/48 via fe80::1 "
                "dev eth0 metric 7\n"},
               {"-n service stop ssh", 0, "note     the daemon kills every process of that name"}});
}

TEST(Tool, WithoutADaemonExits3) {
    ExpectStatus(3, {"addr show", "--wait 0.1 addr"});
    EXPECT_EQ(
        RunLine("addr show").err,
        "tesselctl: the daemon is not running (no socket /tmp/api_daemon). Start it with \"service tessel start\", "
        "or wait with --wait.\n");
    const ToolRun status = RunLine("status -j");
    EXPECT_EQ(status.status, 3);
    EXPECT_EQ(ordered_json::parse(status.out)["daemon"]["running"], false);
}

TEST(Tool, StatusShowsUplinksAndFirewall) {
    FakeDaemon daemon(&DeviceAnswer);
    EXPECT_THAT(RunLine("status eth0").out, HasSubstr("gateway 192.168.1.1"));
    const auto gateways = ordered_json::parse(RunLine("status eth0 -j").out)["interfaces"][0]["gateways"];
    EXPECT_EQ(gateways[0]["gateway"], "192.168.1.1");
    EXPECT_EQ(gateways[0]["metric"], nullptr) << "the kernel has no such route";
    RunInSandbox("iptables -N whitelist; iptables -A whitelist -s 10.0.0.1 -j RETURN; iptables -I INPUT -j whitelist");
    EXPECT_THAT(RunLine("status").out, HasSubstr("inet whitelist on (1 entry)   inet6 off\n"));
    EXPECT_EQ(ordered_json::parse(RunLine("status -j").out)["firewall"][0]["entries"], 1);
}

TEST(Tool, WaitsForADaemonThatIsStarting) {
    std::unique_ptr<FakeDaemon> daemon;
    std::thread starter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        daemon = std::make_unique<FakeDaemon>(&DeviceAnswer);
    });
    EXPECT_EQ(RunLine("--wait 10 link mtu eth0").out, "1400\n");
    starter.join();
}

TEST(Addr, ShowsWhatTheDaemonTells) {
    FakeDaemon daemon(&DeviceAnswer);
    EXPECT_EQ(
        RunLine("addr show dev eth0 --json").out,
        R"([{"interface":"eth0","addresses":[)"
        "\n "
        R"({"address":"192.168.1.20","prefix_length":24,"family":"inet","scope":"global","dynamic":false,"tentative":false},)"
        "\n "
        R"({"address":"2001:db8::","prefix_length":64,"family":"inet6","scope":"global","dynamic":true,"tentative":false}],"truncated":false}])"
        "\n");
    EXPECT_EQ(RunLine("addr dev eth0 --no-header").out,
              "eth0  192.168.1.20/24  global\neth0  2001:db8::/64    global  dynamic\n");
    EXPECT_EQ(RunLine("-g address,dynamic addr show dev eth0").out, "192.168.1.20\tfalse\n2001:db8::\ttrue\n");
}

TEST(Link, SettingIsReadBack) {
    FakeDaemon daemon(&DeviceAnswer);
    ExpectStatus(0, {"link set eth0 mtu 1400"});
    const ToolRun run = RunLine("link set eth0 mtu 1300");
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(run.out + run.err, "tesselctl: link set eth0 mtu 1300: answered success, but the MTU is 1400\n");
}

TEST(Link, WhereTheDaemonFailsTheKernelHelps) {
    FakeDaemon daemon(&DeviceAnswer);
    const auto lo = ordered_json::parse(RunLine("link show lo -j").out)[0];
    EXPECT_EQ(lo["mtu"], 1400);
    EXPECT_EQ(lo["mac"], nullptr);
    EXPECT_EQ(lo["addresses"][0]["address"], "127.0.0.1");
    EXPECT_THAT(lo["note"].get<std::string>(), StartsWith("no Ethernet address"));
    EXPECT_EQ(ordered_json::parse(RunLine("link show eth0 -j").out)[0]["note"], nullptr);
}

TEST(Causes, AreNamedWhereTheyCanBeSeen) {
    FakeDaemon daemon(&FailingAnswer);
    ExpectAll({{"link mtu eth9", 1, "there is no interface eth9"},
               {"link mtu eth0", 1, "its log says why"},
               {"service stop ssh", 1, "no process dropbear runs here"}});
}

TEST(ReadBack, FindsWhatDidNotHappen) {
    FakeDaemon daemon(&DeviceAnswer);  // has 192.168.1.20/24 and MAC 02:..:01, whatever it is told
    ExpectStatus(5, {"addr add 192.168.1.99/24 dev eth0", "addr flush dev eth0 -4",
                     "addr set dev eth0 192.168.1.20/24 10.0.0.1/8", "link set eth0 mac 02:00:00:00:00:09"});
    ExpectAll({{"addr del 192.168.1.20/24 dev eth0", 5, "eth0 still has 192.168.1.20/24"},
               {"addr set dev eth0 2001:db8::/64 192.168.1.20/24", 0, ""}});
    EXPECT_EQ(daemon.Requests()[daemon.Requests().size() - 2].payload[0], 11) << "one request for both families";
    ExpectStatus(2, {"addr add 192.168.1.20 dev eth0", "addr add 192.168.1.20/33 dev eth0", "addr add ::1/129 dev eth0",
                     "addr set dev eth0 -6 10.0.0.1/8", "link set eth0 mac 02:00:00:00:00",
                     "link set eth0 mac 02:00:00:00:00:01:02"});
}

TEST(Refused, BeforeAnythingIsSent) {
    FakeDaemon daemon(&DeviceAnswer);
    WriteFile("/tmp/full.log", "text");
    ExpectStatus(2, {"link set eth0 mtu 67", "link set eth0 mtu 65537", "link mtu eth0 -4", "log level 2147483648",
                     "log file relative", "log file /tmp/full.log", "raw 0x112 abc", "raw 0x112 @/nonexistent",
                     "raw 0x999", "raw nonsense", "help nonsense", "help protocol 0x999"});
    EXPECT_TRUE(daemon.Requests().empty());
    EXPECT_EQ(ReadFile("/tmp/full.log"), "text");
    setenv("SSH_CONNECTION", "192.168.1.77 50000 192.168.1.20 22", 1);
    ExpectStatus(2, {"addr del 192.168.1.20/24 dev eth0", "addr flush dev eth0", "addr set dev eth0 192.168.1.21/24"});
    // The session keeps its address.
    ExpectStatus(0, {"addr del 192.168.1.21/24 dev eth0", "addr set dev eth0 192.168.1.20/24"});
    const std::size_t sent = daemon.Requests().size();
    ExpectStatus(2, {"service stop ssh", "service stop dropbear"});
    EXPECT_EQ(daemon.Requests().size(), sent);
    ExpectStatus(0, {"service stop ssh --force", "service stop ftpd"});
    unsetenv("SSH_CONNECTION");
}

TEST(Log, WordsBecomeLevels) {
    FakeDaemon daemon(&DeviceAnswer);
    ExpectStatus(0, {"log level off", "log level error", "log level info", "log level debug", "log level 9"});
    std::string levels;
    for (const SeenRequest& request : daemon.Requests())
        levels += std::to_string(request.payload[0]);
    EXPECT_EQ(levels, "02459");
}

TEST(Log, DebugIsAFile) {
    EXPECT_EQ(RunLine("log debug on").status, 0);
    EXPECT_EQ(access("/tmp/tesseldebug", F_OK), 0);
    ExpectStatus(0, {"log debug off", "log debug off"});
    EXPECT_NE(access("/tmp/tesseldebug", F_OK), 0);
    // A link in a directory that is everybody's is not followed.
    ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/tesseldebug"), 0);
    EXPECT_EQ(RunLine("log debug on").status, 1);
    EXPECT_NE(access("/tmp/elsewhere", F_OK), 0);
}

TEST(Raw, SendsAndShowsBytes) {
    FakeDaemon daemon(&DeviceAnswer);
    WriteFile("/tmp/request", std::string("eth0", 4));
    EXPECT_EQ(RunLine("raw mtu_get 65746830").out, "0000000078050000\n");
    EXPECT_EQ(RunLine("raw 274 @/tmp/request").out, "0000000078050000\n");
    EXPECT_EQ(RunLine("raw 0x777 --reply 4").out, "00000000\n");
    EXPECT_EQ(RunLine("raw 0x777 --reply 5").status, 1) << "a reply of another size";
    const auto seen = daemon.Requests();
    EXPECT_EQ(seen[0].payload, "eth0");
    EXPECT_EQ(seen[1].payload, "eth0");
    EXPECT_EQ(seen[1].type, 0x112U);
}

TEST(Verbose, ShowsBothDirections) {
    FakeDaemon daemon(&DeviceAnswer);
    const std::string shown = RunLine("-vv link mtu eth0").err;
    EXPECT_THAT(shown, StartsWith("-> 0x112 mtu_get   interface eth0, 16 bytes\n"));
    EXPECT_THAT(shown, HasSubstr("   0000  65 74 68 30 00"));
    EXPECT_THAT(shown, HasSubstr("<- 0x112 mtu_get   result 0   mtu 1400, 8 bytes from pid "));
    EXPECT_THAT(shown, HasSubstr("   0000  00 00 00 00 78 05 00 00\n"));
}

}  // namespace
