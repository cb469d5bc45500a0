// PPPoE: the line that the shell gets, and which process a stop ends. The bond, step by step, also when one fails. The
// web server's two lines.
#include "services/bond.h"
#include "services/pppoe.h"
#include "tests/support/far.h"
#include "tests/support/link_requests.h"
#include "tests/support/logged.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using testing::EndsWith;

// A line that is started, as it is noted.
std::string Line(const std::string& rest, const std::string& pty = "\"pppoe -I eth0 -T 80 -U  -m 1412\"") {
    return "sh -c pppd pty " + pty +
           " noipdefault tessel_pppoe noauth default-asyncmap hide-password nodetach  mtu 1492 mru 1492 noaccomp "
           "nodeflate nopcomp novj novjccomp defaultroute usepeerdns maxfail " +
           rest + " &";
}

Call Link(const std::string& request) {
    return {0x601, request, "ApidPppoeStart: pppoe start error!"};
}

TEST(Pppoe, LinesOfALink) {
    LoggedTools tools(4);
    const std::string run = Line("0 noip +ipv6");
    WriteFile("/tmp/pppd.txt", "");
    tools.Check({
        {"no option", Link(Dial(10, "")), 0, run,
         "ApidPppoeStart: wSinFamily : 10; PppoeClientStart: PppoeClientStart cmd: [" + run.substr(6, run.size() - 8) +
             "]"},
        {"all options", Link(Dial(11, "u", "p", "isp.net/1", "eth1.7", {1, 9, 2, 3, 4, 5, 6})), 0,
         Line("6 holdoff 3 persist debug lcp-echo-interval 4 lcp-echo-failure 5 user u password p +ipv6",
              "\" pppoe -I eth1.7 -S isp.net/1 -T 80 -U  -m 1412 \"")},
        {"signed", Link(Dial(2, "", "", "", "eth0", {0, 1, 0, 0, 0, ~0U, ~0U})), 0,
         Line("-1 lcp-echo-failure -1 noipv6")},
        {"another family", Link(Dial(7, "it's")), 0, Line("0 user 'it'\\''s' ")},
        {"cut", Link(Dial(10, "").substr(0, 2 + 793 + 4)), 0, run},
    });
    EXPECT_NE(access("/tmp/pppd.txt", F_OK), 0);
}

TEST(Pppoe, TheShellHandsEveryByteOver) {
    LoggedTools tools;
    std::string bytes = "  ";  // of which the shell would make one blank between words
    for (int c = ' '; c <= 0xFF; ++c) {
        if (c != 0x7F) bytes += static_cast<char>(c);
    }
    const std::string hostile = "$(touch /tmp/hostile)`touch /tmp/hostile`'; touch /tmp/hostile; '";
    for (const auto& [user, password] : {std::pair("-u  ser's", bytes), {"josh", hostile}}) {
        EXPECT_EQ(tools.Status(0x601, Dial(2, user, password, "isp")), 0);
        const std::string line = tools.TakeRuns().at(0).substr(strlen("sh -c pppd pty "));
        WriteFile("/tmp/line", "printf %s/ " + line + "\nwait");
        EXPECT_THAT(OutputOf("sh /tmp/line"),
                    testing::AllOf(testing::StartsWith(" pppoe -I eth0 -S isp -T 80 "),
                                   EndsWith("/user/" + std::string(user) + "/password/" + password + "/noipv6/")));
    }
    EXPECT_NE(access("/tmp/hostile", F_OK), 0);
}

TEST(Pppoe, WhatNoQuotingMakesSafeIsRefused) {
    LoggedTools tools;
    std::vector<std::pair<std::string, std::string>> rows = {{Dial(2, "u", "p", "-s"), "service"}};
    for (const char* name : {"sixteen-letters-", "", "a/b", "a:1", "..", "-a"})
        rows.emplace_back(Dial(2, "u", "p", "s", name), "interface");
    for (const char c : std::string("\x01\t\n\r\x1f\x7f")) {
        rows.emplace_back(Dial(2, std::string("user") + c), "user");
        rows.emplace_back(Dial(2, "", c + std::string("password")), "password");
    }
    for (const char c : std::string(" \"'$`\\;&|<>(){}[]*?!~#^\n\x7f\x80\xff")) {
        rows.emplace_back(Dial(2, "", "", std::string("isp") + c), "service");
        rows.emplace_back(Dial(2, "", "", "", std::string("eth") + c), "interface");
    }
    for (const auto& [request, field] : rows)
        tools.Check({{field, Link(request), -1, "",
                      "ApidPppoeStart: wSinFamily : 2; PppoeClientStart: the pppoe " + field + " is invalid!"}});
}

TEST(Pppoe, ALineHasRoomFor999Characters) {
    LoggedTools tools;
    const std::string others(254, 'x');
    const std::size_t room = 999 + std::string("sh -c  &").size() - 508 -
                             Line("0 user  password  noipv6", "\" pppoe -I eth0 -S  -T 80 -U  -m 1412 \"").size();
    for (const std::string& password : {std::string(room, 'p'), '\'' + std::string(room - 6, 'p')}) {
        EXPECT_EQ(tools.Status(0x601, Dial(2, others, password, others)), 0);
        EXPECT_EQ(tools.TakeRuns().size(), 1U);
        WriteFile("/tmp/pppd.txt", "");
        EXPECT_EQ(tools.Status(0x601, Dial(2, others, password + "p", others)), -1);
        EXPECT_EQ(tools.TakeRuns().size(), 0U);
        EXPECT_EQ(access("/tmp/pppd.txt", F_OK), 0) << "refused before anything is touched";
        EXPECT_THAT(tools.TakeLog(), HasSubstr("PppoeClientStart: the cmd is too long!; pppd pty \" pppoe"));
    }
    const std::string quotes(255, '\'');
    EXPECT_EQ(tools.Status(0x601, Dial(2, quotes, quotes)), -1) << "the longest words, unterminated";
}

TEST(Pppoe, AStopEndsOneOfItsFamily) {
    LoggedTools tools(4);
    for (const char* path : {"/tmp/pppd", "/tmp/pppd2", "/tmp/notes"})
        EXPECT_EQ(symlink("/bin/sh", path), 0);
    const auto stop = [&](u16 family, const Process* ended) {
        EXPECT_EQ(tools.Status(0x602, Bytes(family)), 0) << family;
        EXPECT_EQ(Joined(tools.TakeRuns()), ended != nullptr ? "kill -9 " + std::to_string(ended->pid) : "") << family;
        return tools.TakeLog();
    };
    const Process shell("pppd", "noipv6 +ipv6");
    const Process notes("", "user josh noipv6", "/tmp/notes");
    const Process other("", "user josh noipv6", "/tmp/pppd2");
    const Process part("", "user joshnoipv6", "/tmp/pppd");
    EXPECT_THAT(stop(2, nullptr), HasSubstr("; PppoeClientStop: pppoe already stop.{errno"));
    const Process josh("", "user josh noipv6", "/tmp/pppd");
    stop(2, &josh);
    const Process v4("", "noipv6", "/tmp/pppd");
    const Process v6("", "noip +ipv6", "/tmp/pppd");
    EXPECT_THAT(stop(2, &v4), HasSubstr("wSinFamily : 2; PppoeClientStop: PppoeClientStop cmd kill -9 "));
    stop(10, &v6);
    tools.Answer("kill -9 " + std::to_string(v6.pid), "", 3);
    EXPECT_THAT(stop(11, &v6), EndsWith("; the child process error:ret=3!")) << "its words contain those of both";
    EXPECT_EQ(tools.Status(0x602, "\x07"), -1);
    EXPECT_THAT(tools.TakeLog(), EndsWith(" wSinFamily 7 is invalid!; ApidPppoeStop: PppoeClientStop error!"));
}

Call Start(const std::string& request) {
    return {0xF01, request, "ApidBondStart: BondStart error!"};
}
const Call kStop = {0xF02, ""};

constexpr char kMode[] = "sh -c echo \"active-backup 3\"  > /sys/devices/virtual/net/bond0/bonding/mode";
const std::vector<std::string> kStartSteps =
    Split("ifconfig eth0 up; ifconfig bond0 down; " + std::string(kMode) +
          "; ifconfig bond0 up; ifenslave bond0 eth1 eth0; "
          "ip addr flush dev eth0; ip addr flush dev eth1; ip addr flush dev eth10");
const std::vector<std::string> kStopSteps = Split(
    "ifenslave -d bond0 eth1 eth0; ip addr flush dev bond0; ifconfig bond0 down; ifconfig eth0 up; "
    "ip addr flush dev eth0; ifconfig eth1 up; ip addr flush dev eth1; ifconfig eth10 up; ip addr flush dev eth10");
const std::string kRequest = WithLength(BondParts({"eth0", "eth1", "eth10"}, "eth1"));

class Bond : public testing::Test {
  protected:
    ~Bond() override {
        g_dwBondStatus = 0;
        g_tBondParam = {};
    }
    // What a command runs up to its step that fails.
    std::string FailAt(const std::string& step, const Call& call) {
        tools.Fail({step});
        EXPECT_EQ(tools.Status(call), -1) << step;
        const std::string line = step.substr(0, step.find(' ')) + " " + step;
        EXPECT_THAT(tools.TakeLog(), testing::ContainsRegex("; BondSt[artop]+: exec_cmd " + line + " ? error!; "))
            << step;
        tools.Answer(step, "");
        return Joined(tools.TakeRuns());
    }
    // A request that is not as long as it says gets no answer, any other one does.
    void Refuse(const std::string& request, const std::string& line = "the receive buffer size is error!") {
        const bool hasAnswer = !line.starts_with("the receive");
        EXPECT_EQ(tools.Request(0xF01, request).has_value(), hasAnswer) << request.size();
        EXPECT_THAT(tools.TakeLog(), EndsWith(line + (hasAnswer ? "; ApidBondStart: BondStart error!" : "")));
        EXPECT_TRUE(tools.TakeRuns().empty() && g_tBondParam.dwIfaceNum == 0) << request.size();
    }
    LoggedTools tools{4};
};

TEST_F(Bond, IsMadeAndUndone) {
    tools.Check({
        {"start", Start(kRequest), 0, Joined(kStartSteps),
         "ApidBondStart: nSendLen : 54; dwBondMode : 3; nBondPathLen : 1; xmalloc: type=3:[+]; ApidBondStart: "
         "tBondParam.pchBondPath : ; tBondParam.dwIfaceNum : 3; 0 nIfaceLen : 5; xmalloc: type=3:[+]; ApidBondStart: "
         "tBondParam.achIface[0] : eth0; 1 nIfaceLen : 5; xmalloc: type=3:[+]; ApidBondStart: tBondParam.achIface[1] : "
         "eth1; 2 nIfaceLen : 6; xmalloc: type=3:[+]; ApidBondStart: tBondParam.achIface[2] : eth10; active interface "
         "nIfaceLen : 5; xmalloc: type=3:[+]; ApidBondStart: tBondParam.pchActiveIface : eth1; bond start...!; "
         "BondStart: achNicBuf :  eth1; achNicBuf :  eth1 eth0; BondStart flush cmd : $ ; BondStop down : $; BondStart "
         "cmd : $; BondStart up : $; BondStart ifenslave cmd : $; BondStart flush cmd : $; BondStart flush cmd : $; "
         "BondStart flush cmd : $"},
        {"stop", kStop, 0, Joined(kStopSteps),
         "BondStop: BondStop ifenslave cmd : $; BondStart flush cmd : $; BondStop down : $; BondStart ifconfig cmd : "
         "$; BondStart ifconfig cmd : ifconfig ifconfig eth1 up; BondStart ifconfig cmd : ifconfig ifconfig eth10 up"},
        {"stop again", kStop, 0, "", "BondStop: the bond has stopped!"},
        {"a large mode", Start(WithLength(BondParts({}, "e0", ~0U))), 0,
         "ifconfig bond0 down; sh -c echo \"active-backup -1\"  > /sys/devices/virtual/net/bond0/bonding/mode; "
         "ifconfig bond0 up; ifenslave bond0 e0"},
    });
}

TEST_F(Bond, StepsThatFail) {
    std::string run;
    for (const std::string& step : kStartSteps) {
        run += (run.empty() ? "" : "; ") + step;
        if (step == kMode) continue;
        EXPECT_EQ(FailAt(step, Start(kRequest)), run + (step.starts_with("ip ") ? "; " + kStopSteps[0] : ""));
        EXPECT_EQ(g_tBondParam.pchBondPath != nullptr, step == "ifconfig bond0 down") << step;
        EXPECT_EQ(tools.Status(kStop), 0) << step;
        EXPECT_EQ(tools.TakeLog(), "BondStop: the bond has stopped!") << step;
    }
    tools.Fail({kMode});
    EXPECT_EQ(tools.Status(Start(kRequest)), 0) << "what becomes of the mode is not looked at";
    (void)tools.TakeRuns();
    run.clear();
    for (const std::string& step : kStopSteps) {
        run += (run.empty() ? "" : "; ") + step;
        EXPECT_EQ(FailAt(step, kStop), run);
        EXPECT_EQ(tools.Status(Start(WithLength(BondParts({"0", "1", "2", "3", "4"}, "0")))), -1) << step;
        EXPECT_THAT(tools.TakeLog(), EndsWith("the bond has started!; ApidBondStart: BondStart error!")) << step;
    }
    tools.Check({{"stop", kStop, 0, run}, {"start", Start(kRequest), 0, Joined(kStartSteps)}});
}

TEST_F(Bond, RequestsOfAnotherLengthGetNoAnswer) {
    for (std::size_t size = 0; size < kRequest.size(); ++size) {
        Refuse(kRequest.substr(0, size));
        if (size >= sizeof(u32)) Refuse(WithLength(kRequest.substr(4, size - 4)));
    }
    Refuse(kRequest + '\0');
    // The total, and the lengths of the path, the names and the active one: all more than there is.
    for (const std::size_t at : {0U, 8U, 17U, 26U, 35U, 45U}) {
        for (const u32 length : {0x100U, 3060U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFCU, 0xFFFFFFFFU})
            Refuse(std::string(kRequest).replace(at, 4, Number(length)));
    }
    EXPECT_EQ(tools.Status(Start(WithLength(kRequest.substr(4) + '\0'))), 0) << "bytes behind the parts";
}

TEST_F(Bond, OnlyFourInterfacesMakeOne) {
    for (const u32 count : {5U, ~0U})
        Refuse(WithLength(BondParts({}, "e").replace(9, 4, Number(count))), ": tessel support not more than 4 nic!");
    for (const std::string name : {"", "-a", "a b", "a/b", "sixteen-letters-"}) {
        Refuse(WithLength(BondParts({"eth0", name}, "eth0")), ": the interface name [" + name + "] is invalid!");
        Refuse(WithLength(BondParts({"eth0"}, name)), ": the interface name [" + name + "] is invalid!");
    }
    Refuse(WithLength(Number(3) + Sized("") + Number(1) + Sized("") + Sized("")), "name [] is invalid!");
    const std::string unterminated = Number(3) + Sized("") + Number(2) + Sized("eth0") + Sized("eth1\0x"s);
    EXPECT_EQ(tools.Status(Start(WithLength(unterminated + Sized("eth1")))), 0);
    EXPECT_STREQ(g_achNicBuf, " eth1 eth0");
    EXPECT_EQ(tools.Status(kStop), 0);
    const std::string name = "fourteen-lette";
    const auto request = WithLength(BondParts({name + "0", name + "1", name + "2", name + "3"}, name + "4"));
    EXPECT_EQ(tools.Status(Start(request)), 0);
    EXPECT_STREQ(g_achNicBuf, " fourteen-lette4 fourteen-lette0 fourteen-lette1 fourteen-lette2 fourteen-lette3");
}

TEST(WebServer, IsStartedAndKilled) {
    LoggedTools tools;
    const Call startCall = {0x301, "abcd", "apid_webs_start: webs start error!"};
    const Call stopCall = {0x302, "", "apid_webs_stop: webs stop error!"};
    const std::string start = "lighttpd -f /usr/lighttpd/lighttpd.conf -m /usr/lighttpd/lib";
    const std::string log = "webs_start: " + start;
    tools.Check({{"start", startCall, 0, start, log}, {"stop", stopCall, 0, "killall -9 lighttpd"}});
    tools.Answer(start, "", 255);
    tools.Answer("killall -9 lighttpd", "", -1);  // could not be run
    tools.Check({
        {"start fails", startCall, -1, start, log + "; the child process error!; " + start},
        {"none to stop", stopCall, -1, "killall -9 lighttpd",
         "webs_stop: killall -9 lighttpd; the child process error!; killall -9 lighttpd"},
    });
}

}  // namespace
}  // namespace tessel::test
