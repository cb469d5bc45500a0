// The bond: what a request makes of it, step by step, and what becomes of it when a step fails.
#include "services/bond.h"

#include "tests/support/bond.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr u32 kStart = 0xF01;
constexpr u32 kStop = 0xF02;
constexpr char kMode[] = "sh -c echo \"active-backup 3\"  > /sys/devices/virtual/net/bond0/bonding/mode";

using testing::ContainsRegex;
using testing::EndsWith;

using Lines = std::vector<std::string>;

// With the active interface eth1 among eth0, eth1 and eth10.
const Lines kStartLines = {"ifconfig eth0 up",       "ifconfig bond0 down",       kMode,
                           "ifconfig bond0 up",      "ifenslave bond0 eth1 eth0", "ip addr flush dev eth0",
                           "ip addr flush dev eth1", "ip addr flush dev eth10"};
const Lines kStopLines = {
    "ifenslave -d bond0 eth1 eth0", "ip addr flush dev bond0", "ifconfig bond0 down",    "ifconfig eth0 up",
    "ip addr flush dev eth0",       "ifconfig eth1 up",        "ip addr flush dev eth1", "ifconfig eth10 up",
    "ip addr flush dev eth10"};

std::string Request() {
    return BondRequest(BondParts({"eth0", "eth1", "eth10"}, "eth1"));
}

class Bond : public testing::Test {
  protected:
    ~Bond() override {
        g_dwBondStatus = 0;
        g_tBondParam = {};
    }
    // What is run up to the step that fails, whose line the log has.
    std::string FailAt(const std::string& step, u32 type, const std::string& request) {
        tools.Fail({step.c_str()});
        (void)tools.TakeLog();
        EXPECT_EQ(tools.Status(type, request), -1) << step;
        const std::string program = step.substr(0, step.find(' '));
        EXPECT_THAT(tools.TakeLog(), ContainsRegex("exec_cmd " + program + " " + step + "  ?error!")) << step;
        tools.Answer(step, "");
        return Joined(tools.TakeRuns());
    }
    LoggedTools tools{4};
};

TEST_F(Bond, IsMadeAndUndone) {
    tools.Check({
        {"none to stop", {kStop, ""}, 0, "", "BondStop: the bond has stopped!"},
        {"start",
         {kStart, Request()},
         0,
         Joined(kStartLines),
         "ApidBondStart: nSendLen : 56; dwBondMode : 3; nBondPathLen : 3; xmalloc: type=3:[+]; ApidBondStart: "
         "tBondParam.pchBondPath : /x; tBondParam.dwIfaceNum : 3; 0 nIfaceLen : 5; xmalloc: type=3:[+]; ApidBondStart: "
         "tBondParam.achIface[0] : eth0; 1 nIfaceLen : 5; xmalloc: type=3:[+]; ApidBondStart: tBondParam.achIface[1] : "
         "eth1; 2 nIfaceLen : 6; xmalloc: type=3:[+]; ApidBondStart: tBondParam.achIface[2] : eth10; active interface "
         "nIfaceLen : 5; xmalloc: type=3:[+]; ApidBondStart: tBondParam.pchActiveIface : eth1; bond start...!; "
         "BondStart: achNicBuf :  eth1; achNicBuf :  eth1 eth0; BondStart flush cmd : ifconfig ifconfig eth0 up ; "
         "BondStop down : ifconfig ifconfig bond0 down; BondStart cmd : echo \"active-backup 3\"  > "
         "/sys/devices/virtual/net/bond0/bonding/mode; BondStart up : ifconfig ifconfig bond0 up; BondStart ifenslave "
         "cmd : ifenslave ifenslave bond0 eth1 eth0; BondStart flush cmd : ip ip addr flush dev eth0; BondStart flush "
         "cmd : ip ip addr flush dev eth1; BondStart flush cmd : ip ip addr flush dev eth10"},
    });
    EXPECT_EQ(g_dwBondStatus, 1U);
    EXPECT_STREQ(g_tBondParam.pchBondPath.get(), "/x");
    EXPECT_EQ(tools.Status(kStart, BondRequest(BondParts({"e0", "e1", "e2", "e3", "e4"}, "e"))), -1);
    EXPECT_THAT(tools.TakeLog(), EndsWith("BondStart: the bond has started!; ApidBondStart: BondStart error!"));
    tools.Check({
        {"stop",
         {kStop, "x"},
         0,
         Joined(kStopLines),
         "BondStop: BondStop ifenslave cmd : ifenslave ifenslave -d bond0 eth1 eth0; BondStart flush cmd : ip ip addr "
         "flush dev bond0; BondStop down : ifconfig ifconfig bond0 down; BondStart ifconfig cmd : ifconfig ifconfig "
         "eth0 "
         "up; BondStart ifconfig cmd : ifconfig ifconfig eth1 up; BondStart ifconfig cmd : ifconfig ifconfig eth10 up"},
        {"stop again", {kStop, ""}, 0, "", "BondStop: the bond has stopped!"},
        {"a large mode",
         {kStart, BondRequest(BondParts({}, "e0", "", ~0U))},
         0,
         "ifconfig bond0 down; sh -c echo \"active-backup -1\"  > /sys/devices/virtual/net/bond0/bonding/mode; "
         "ifconfig "
         "bond0 up; ifenslave bond0 e0"},
    });
}

TEST_F(Bond, StepsThatFail) {
    Lines expected;
    for (const std::string& step : kStartLines) {
        expected.push_back(step);
        if (step == kMode) continue;
        const bool isFlush = step.starts_with("ip addr flush");
        const std::string release = isFlush ? "; ifenslave -d bond0 eth1 eth0" : "";
        EXPECT_EQ(FailAt(step, kStart, Request()), Joined(expected) + release);
        EXPECT_EQ(g_dwBondStatus, 0U) << step;
        EXPECT_EQ(g_tBondParam.dwIfaceNum, step == "ifconfig bond0 down" ? 3U : 0U) << step;
        EXPECT_EQ(g_tBondParam.pchBondPath != nullptr, step == "ifconfig bond0 down") << step;
        EXPECT_EQ(tools.Status(kStop, ""), 0) << "down: " << step;
        EXPECT_EQ(Joined(tools.TakeRuns()), "");
    }
    tools.Fail({kMode});
    EXPECT_EQ(tools.Status(kStart, Request()), 0) << "what becomes of the mode is not looked at";
    (void)tools.TakeRuns();
    expected.clear();
    for (const std::string& step : kStopLines) {
        expected.push_back(step);
        EXPECT_EQ(FailAt(step, kStop, ""), Joined(expected));
        EXPECT_EQ(tools.Status(kStart, Request()), -1) << "still up: " << step;
        EXPECT_EQ(Joined(tools.TakeRuns()), "");
    }
    EXPECT_EQ(tools.Status(kStop, ""), 0);
    EXPECT_EQ(tools.Status(kStart, Request()), 0);
}

TEST_F(Bond, RequestsOfAnotherLengthGetNoAnswer) {
    const std::string whole = Request();
    std::vector<std::string> requests = {Number(0), Number(~0U), Number(57) + whole.substr(4), whole + '\0'};
    for (std::size_t size = 0; size < whole.size(); ++size) {
        requests.push_back(whole.substr(0, size));
        if (size >= sizeof(u32)) requests.push_back(BondRequest(whole.substr(4, size - 4)));
    }
    // The lengths of the path, the names and the active one; all more than there is.
    for (const std::size_t at : {8, 19, 28, 37, 47}) {
        for (const u32 length : {0x100U, 3060U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFCU, 0xFFFFFFFFU})
            requests.push_back(std::string(whole).replace(at, 4, Number(length)));
    }
    for (const std::string& request : requests) {
        EXPECT_EQ(tools.Request(kStart, request), std::nullopt) << request.size();
        EXPECT_THAT(tools.TakeLog(), EndsWith("the receive buffer size is error!")) << request.size();
        EXPECT_EQ(Joined(tools.TakeRuns()), "") << request.size();
    }
    EXPECT_EQ(tools.Status(kStart, BondRequest(whole.substr(4) + '\0')), 0) << "bytes behind the parts";
}

TEST_F(Bond, OnlyFourInterfacesMakeOne) {
    const auto parts = [](const std::string& name) { return BondParts({"eth0", name}, "eth0"); };
    const std::string four = BondParts({"eth0", "eth1", "eth2", "eth3"}, "eth3");
    const std::pair<std::string, const char*> refused[] = {
        {BondParts({"e0", "e1", "e2", "e3", "e4"}, "e0"), "tessel support not more than 4 nic!"},
        {std::string(four).replace(11, 4, Number(5)), "tessel support not more than 4 nic!"},
        {std::string(four).replace(11, 4, Number(~0U)), "tessel support not more than 4 nic!"},
        {parts(""), "the interface name [] is invalid!"},
        {parts("-a"), "the interface name [-a] is invalid!"},
        {parts("a b"), "the interface name [a b] is invalid!"},
        {parts("sixteen-letters-"), "the interface name [sixteen-letters-] is invalid!"},
        {parts(std::string(3000, 'e')), "] is invalid!"},
        {BondParts({"eth0"}, "a/b"), "the interface name [a/b] is invalid!"},
        {Number(3) + Number(0) + Number(1) + Sized("") + Sized(""), "the interface name [] is invalid!"},
    };
    for (const auto& [request, line] : refused) {
        EXPECT_EQ(tools.Status(kStart, BondRequest(request)), -1) << line;
        EXPECT_THAT(tools.TakeLog(), EndsWith(line + std::string("; ApidBondStart: BondStart error!")));
        EXPECT_EQ(Joined(tools.TakeRuns()), "") << line;
        EXPECT_EQ(g_tBondParam.dwIfaceNum, 0U) << line;
    }
    const std::string unterminated =
        Number(3) + Sized("") + Number(2) + Sized("eth0") + Sized(std::string("eth1\0x", 6));
    EXPECT_EQ(tools.Status(kStart, BondRequest(unterminated + Sized("eth1"))), 0);
    EXPECT_STREQ(g_achNicBuf, " eth1 eth0");
    EXPECT_EQ(tools.Status(kStop, ""), 0);
    const auto longName = [](const char* end) { return "fourteen-lette" + std::string(end); };
    EXPECT_EQ(tools.Status(kStart, BondRequest(BondParts({longName("0"), longName("1"), longName("2"), longName("3")},
                                                         longName("4")))),
              0);
    EXPECT_STREQ(g_achNicBuf, " fourteen-lette4 fourteen-lette0 fourteen-lette1 fourteen-lette2 fourteen-lette3");
}

}  // namespace
}  // namespace tessel::test
