// The settings as a document; files of them; changes that are taken back; what the daemon logs for a command.
#include "client/ctl/state.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>

#include "tests/ctl/tool.h"

namespace tessel::test {
namespace {

// {"interfaces": [eth0]} with one member set, or another member of the document.
Json State(const char* key, const char* value) {
    Json state = Json::parse(R"({"interfaces": [{"interface": "eth0", "mtu": 1500, "mac": "02:00:00:00:00:01",
        "addresses": ["192.168.1.20/24", "2001:db8::5/64"], "gateways": ["192.168.1.1"]}], "priorities": [],
        "routes": [{"destination": "10.1.0.0/16", "gateway": "192.168.1.254", "interface": "eth0", "metric": 5}],
        "rules": [{"pref": 30, "from": "192.168.1.0/24", "fwmark": 16, "table": 100}]})");
    Json& place = state.contains(key) ? state : state["interfaces"][0];
    place[key] = Json::parse(value);
    return state;
}

TEST(StateTest, StepsLeadFromOneDocumentToAnother) {
    const std::tuple<const char*, const char*, std::string> cases[] = {
        // what is wanted of a member, and the steps that lead there
        {"mtu", "1500", ""},
        {"mtu", "1400", "link set eth0 mtu 1400"},
        {"mac", R"("02:00:00:00:00:09")", "link set eth0 mac 02:00:00:00:00:09"},
        {"addresses", R"(["2001:db8::5/64", "192.168.1.20/24"])", ""},
        {"addresses", R"(["192.168.1.20/24", "192.168.1.21/24", "2001:db8::5/64"])",
         "addr add 192.168.1.21/24 dev eth0"},
        {"addresses", R"(["192.168.1.21/24", "2001:db8::5/64"])",
         "addr del 192.168.1.20/24 dev eth0; addr add 192.168.1.21/24 dev eth0"},
        {"gateways", "[]", "gateway del dev eth0 -4"},
        {"gateways", R"(["192.168.1.2", "fe80::1"])",
         "gateway replace 192.168.1.2 dev eth0; gateway set fe80::1 dev eth0"},
        {"priorities", R"([{"interface": "eth0", "metric": 10}, {"interface": "eth1", "metric": 20}])",
         "priority set eth0 10 eth1 20"},
        {"routes", "[]", "route del 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5"},
        {"routes", R"([{"destination": "10.1.0.0/16", "gateway": "192.168.1.254", "interface": "eth0", "metric": 6}])",
         "route del 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5; "
         "route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 6"},
        {"rules", R"([{"pref": 30, "from": "192.168.1.0/24", "fwmark": null, "table": 100}])",
         "rule del from 192.168.1.0/24 fwmark 16 pref 30 table 100; rule add from 192.168.1.0/24 pref 30 table 100"},
    };
    for (const auto& [key, wanted, steps] : cases) {
        std::vector<std::string> lines;
        for (const Step& step : StepsBetween(State("mtu", "1500"), State(key, wanted)))
            lines.push_back(ctl::Joined(step, " "));
        EXPECT_EQ(ctl::Joined(lines, "; "), steps) << key << " " << wanted;
    }
    EXPECT_THAT(StepsBetween(State("mtu", "1500"), Json::object()), IsEmpty()) << "what is not named is left alone";
}

// Real `ip`, and a device with settings of each kind.
class DeviceStateTest : public testing::Test {
  protected:
    void SetUp() override {
        Prepare({"ip addr flush dev eth0", "ip addr flush dev eth1"});
        ExpectAll({{"addr set dev eth0 192.168.1.20/24 2001:db8::5/64", 0, ""},
                   {"gateway set 192.168.1.1 dev eth0", 0, ""},
                   {"route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5", 0, ""},
                   {"rule add from 192.168.1.0/24 pref 30 table 100", 0, ""}});
        before_ = Settings();
    }
    static Json Settings() {
        return DocumentOf("export");
    }
    // The tool in a process of its own, as typed at a terminal that may end.
    static pid_t Typed(const std::string& line) {
        const pid_t child = fork();
        if (child == 0) _exit(RunLine(line).status);
        return child;
    }
    static int StatusOf(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    static bool IsWaiting() {
        return RunLine("try status").out.find("waiting") != std::string::npos;
    }

    const Daemon daemon_;
    Json before_;
};

TEST_F(DeviceStateTest, AFileBringsBackWhatWasExported) {
    ExpectAll({{"export /tmp/state.json", 0, ""}});
    ASSERT_EQ(chmod("/tmp/state.json", 0604) | symlink("state.json", "/tmp/link.json"), 0);
    ExpectAll({{"diff /tmp/state.json", 0, "no difference"},
               {"export /tmp/state.json", 2, "would be replaced"},
               {"export /tmp/link.json -y", 0, "/tmp/link.json"},
               {"addr set dev eth0 -4 192.168.1.77/24", 0, ""},
               {"route add 10.2.0.0/16 via 192.168.1.254 dev eth0 metric 5", 0, ""},
               {"link set eth0 mtu 1400", 0, ""},
               {"diff /tmp/state.json", 1, "addr add 192.168.1.20/24 dev eth0"},
               {"apply /tmp/state.json", 2, "would be run (--yes does it)"}});
    EXPECT_EQ(OutputOf("readlink /tmp/link.json; stat -c %a /tmp/state.json"), "state.json\n604\n");
    ExpectAll({{"apply /tmp/state.json --yes", 0, "as wanted"}, {"apply /tmp/state.json", 0, "already"}});
    EXPECT_EQ(Settings(), before_);
}

// At boot a link may come late; and people write what the kernel has in another form.
TEST_F(DeviceStateTest, AFileIsAppliedAsFarAsItCanBe) {
    const std::string rest = R"("routes": [{"destination": "2001:db8:9::/48", "gateway": "2001:db8::1",
        "interface": "eth0", "metric": 0}], "rules": [{"pref": 77, "from": "10.0.0.0/8", "fwmark": 0, "table": 100}]})";
    WriteFile("/tmp/late.json", R"({"interfaces": [{"interface": "eth9", "mtu": 1400}, {"interface": "eth0",
        "mtu": 1400}], "priorities": [{"interface": "eth0", "metric": 10}, {"interface": "eth9", "metric": 20}], )" +
                                    rest);
    WriteFile("/tmp/there.json", "{" + rest);
    ExpectAll({{"apply /tmp/late.json --yes", 5, "there is no interface eth9"},
               {"link mtu eth0", 0, "1400"},
               {"priority show", 0, "eth0       10"},
               {"apply /tmp/there.json --yes", 0, "as wanted already"}});
}

TEST_F(DeviceStateTest, AWrongFileIsRefusedWithThePlace) {
    for (const auto& [text, problem] : std::initializer_list<std::pair<const char*, const char*>>{
             {"{", "line 1"},
             {"[]", "{object} expected"},
             {R"({"speed": 1})", R"(there is no setting "speed")"},
             {R"({"interfaces": [{"mtu": 1400}]})", R"(interfaces[0]: "interface" is missing)"},
             {R"({"rules": [{"pref": 30, "from": "10.0.0.1/8", "fwmark": 0, "table": 100}]})", "network is 10.0.0.0/8"},
             {R"({"interfaces": [{"interface": "eth0", "mtu": 20}]})", "from 68 to 65536"},
             {R"({"interfaces": [{"interface": "eth0", "addresses": ["192.168.1.300/24"]}]})", "addresses[0]"},
             {R"({"interfaces": [{"interface": "eth0", "addresses": ["fe80::9/64"]}]})",
              "link-local addresses are left"},
             {R"({"interfaces": [{"interface": "eth0", "gateways": ["192.168.1.1", "192.168.1.2"]}]})",
              "another one"}}) {
        WriteFile("/tmp/wrong.json", text);
        ExpectAll({{"diff /tmp/wrong.json", 2, problem}, {"apply /tmp/wrong.json --yes", 2, problem}});
    }
}

TEST_F(DeviceStateTest, AChangeIsTakenBackUnlessSomebodyKeepsIt) {
    const char* const kChange = " -- addr set dev eth0 -4 192.168.1.99/24";
    EXPECT_THAT(Printed(std::string("try 1") + kChange, 6), HasSubstr("as before"));
    EXPECT_EQ(Settings(), before_) << "time-out";

    const pid_t cancelled = Typed(std::string("try 60") + kChange);
    ASSERT_TRUE(Eventually(&IsWaiting));
    EXPECT_EQ(RunLine(std::string("try 60") + kChange).status, 2) << "one at a time";
    for (const int order : {SIGSTOP, SIGCONT})
        kill(DocumentOf("try status")[0]["pid"], order);
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(IsWaiting()) << "being stopped is no decision";
    EXPECT_EQ(RunLine("try cancel").status, 0);
    EXPECT_EQ(StatusOf(cancelled), 6);
    EXPECT_EQ(Settings(), before_) << "cancelled";

    ExpectAll(
        {{"try 60 -- route add 10.3.0.0/16 via 172.16.0.1 dev eth0", 6, ""}, {"try 60 -- addr add x dev eth0", 2, ""}});
    EXPECT_EQ(Settings(), before_);

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int inherited = fcntl(ends[1], F_DUPFD, 1500);
    const pid_t killed = Typed(std::string("try 2") + kChange);
    close(ends[1]);
    close(inherited);
    ASSERT_TRUE(Eventually(&IsWaiting));
    kill(killed, SIGKILL);
    EXPECT_EQ(StatusOf(killed), -SIGKILL);
    pollfd closed{.fd = ends[0], .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&closed, 1, 0), 1) << "the guardian holds nothing of its caller's open";
    close(ends[0]);
    EXPECT_NE(Settings(), before_);
    EXPECT_TRUE(Eventually([&] { return Settings() == before_; })) << "the guardian outlives the terminal";
    ASSERT_TRUE(Eventually([] { return RunLine("try status").out.starts_with("nothing waits"); }));

    const pid_t kept = Typed(std::string("--try 60 addr set dev eth0 -4 192.168.1.99/24"));
    ASSERT_TRUE(Eventually(&IsWaiting));
    ExpectAll({{"try confirm", 0, ""}});
    EXPECT_EQ(StatusOf(kept), 0);
    ExpectAll(
        {{"export", 0, "192.168.1.99/24"}, {"try confirm", 1, "nothing waits"}, {"try status", 0, "nothing waits"}});
}

// By what the kernel's own tools print.
TEST_F(DeviceStateTest, WhatIsSaidToBeAsBeforeIsSo) {
    Prepare({"ip addr add 10.3.3.3/24 dev eth1 valid_lft 1000 preferred_lft 1000",
             "ip rule add iif eth1 pref 100 table 100", "ip route add default via 192.168.1.2 dev eth0 metric 20",
             "iptables -t nat -A OUTPUT -d 10.1.1.1 -j RETURN", "iptables -N icmppacket",
             "echo 1 >/proc/sys/net/ipv4/icmp_echo_ignore_all"});
    WriteFile("/tmp/rules", "*nat\n-A OUTPUT -d 10.2.2.2/32 -j RETURN\nCOMMIT\n*raw\n:OUTPUT DROP [0:0]\nCOMMIT\n");
    const auto look = [] {
        return OutputOf(
            "(ip -o addr; ip rule; ip route show table all | grep -v 'table local'; iptables-save | "
            "grep -e -A -e DROP; cat /proc/sys/net/ipv4/icmp_echo_ignore_all) | "
            "sed 's/ [0-9]*sec//g; s/ tentative//' | sort");
    };
    for (const auto& [line, isAll] :
         std::initializer_list<std::pair<std::string, bool>>{{"table del 254", true},
                                                             {"gateway replace 192.168.1.254 dev eth0", true},
                                                             {"gateway set 192.168.1.1 dev eth0 table 100", true},
                                                             {"addr flush dev lo -4", true},
                                                             {"addr del fe80::ff:fe00:2/64 dev eth2", true},
                                                             {"firewall import /tmp/rules -4 --yes", true},
                                                             {"firewall icmp allow -4", true},
                                                             {"rule del pref 100", false},
                                                             {"addr set dev eth1 10.4.4.4/24", false}}) {
        const std::string before = look();
        const ToolRun run = RunLine("try 1 -- " + line);
        EXPECT_EQ(run.status, 6) << line;
        EXPECT_THAT(run.err, HasSubstr(isAll ? "taken back, everything is as" : "taken back, not everything is as"))
            << line;
        EXPECT_EQ(look() == before, isAll) << line << "\n" << before << look() << run.out;
    }
}

// As long as it asks there is nothing to undo: what is decided meanwhile counts afterwards.
TEST_F(DeviceStateTest, AChangeAfterAQuestionIsTakenBackToo) {
    ExpectAll({{"export /tmp/state.json", 0, ""}, {"addr set dev eth0 -4 192.168.1.77/24", 0, ""}});
    const Json before = Settings();
    int terminal = -1;
    const auto ask = [&] {
        const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0) execl(TESSEL_CTL_PATH, "", "try", "60", "--", "apply", "/tmp/state.json", nullptr);
        std::string shown;
        for (char c = 0; shown.find("[y/N]") == std::string::npos && read(terminal, &c, 1) == 1;)
            shown += c;
        return child;
    };
    const pid_t answered = ask();
    const pid_t cancelling = Typed("try cancel");
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(write(terminal, "y\n", 2), 2);
    EXPECT_EQ(StatusOf(answered), 6);
    EXPECT_EQ(StatusOf(cancelling), 0);
    EXPECT_EQ(Settings(), before);
    close(terminal);
    const pid_t interrupted = ask();
    EXPECT_EQ(write(terminal, "\x03", 1), 1);
    EXPECT_EQ(StatusOf(interrupted), 2) << "refused: nothing was done";
    close(terminal);
    EXPECT_EQ(Settings(), before);
}

TEST_F(DeviceStateTest, ATraceShowsWhatTheDaemonRan) {
    EXPECT_THAT(Printed("trace -- addr show dev eth0 -4"),
                AllOf(HasSubstr("GetIpaddrV4 cmd : ip ip -4 addr show dev eth0\n"), HasSubstr("192.168.1.20/24")));
    ExpectAll({{"trace -- link mtu eth0", 0, "cannot be read back"},
               {"trace -- route add 10.3.0.0/16 via 172.16.0.1 dev eth0", 1, "OneRouteAdd error!"}});
    // Nothing of it stays: no file, none that the daemon has open, and the level.
    EXPECT_EQ(OutputOf("ls -d /tmp/tesselctl-trace* 2>/dev/null"), "");
    EXPECT_EQ(OutputOf("ls -l /proc/" + std::to_string(daemon_.Pid()) + "/fd | grep tesselctl-trace"), "");
    ExpectAll({{"log file /tmp/level.log", 0, ""}, {"addr show dev eth0", 0, ""}, {"log file off", 0, ""}});
    EXPECT_THAT(ReadFile("/tmp/level.log"), Not(HasSubstr("GetIpaddrV4")));
}

}  // namespace
}  // namespace tessel::test
