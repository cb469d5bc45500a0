// The bond: what a request makes of it, step by step, and what becomes of it when a step fails.
#include "services/bond.h"

#include "tests/support/link_requests.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

using namespace std::string_literals;
using testing::EndsWith;

Call Start(const std::string& request) {
    return {0xF01, request};
}
const Call kStop = {0xF02, ""};

constexpr char kMode[] = "sh -c echo \"active-backup 3\"  > /sys/devices/virtual/net/bond0/bonding/mode";
const std::vector<std::string> kStartSteps = {
    "ifconfig eth0 up",       "ifconfig bond0 down",       kMode,
    "ifconfig bond0 up",      "ifenslave bond0 eth1 eth0", "ip addr flush dev eth0",
    "ip addr flush dev eth1", "ip addr flush dev eth10"};
const std::vector<std::string> kStopSteps = {
    "ifenslave -d bond0 eth1 eth0", "ip addr flush dev bond0", "ifconfig bond0 down",    "ifconfig eth0 up",
    "ip addr flush dev eth0",       "ifconfig eth1 up",        "ip addr flush dev eth1", "ifconfig eth10 up",
    "ip addr flush dev eth10"};
const std::string kRequest = WithLength(BondParts({"eth0", "eth1", "eth10"}, "eth1"));

class Bond : public testing::Test {
  protected:
    ~Bond() override {
        g_dwBondStatus = 0;
        g_tBondParam = {};
    }
    // What a command runs up to its step that fails.
    std::string FailAt(const std::string& step, const Call& call) {
        tools.Fail({step.c_str()});
        EXPECT_EQ(StatusOf(call), -1) << step;
        const std::string line = step.substr(0, step.find(' ')) + " " + step;
        EXPECT_THAT(tools.TakeLog(), testing::ContainsRegex("; BondSt[artop]+: exec_cmd " + line + " ? error!; "))
            << step;
        tools.Answer(step, "");
        return Joined(tools.TakeRuns());
    }
    i32 StatusOf(const Call& call) {
        return tools.Status(call.type, call.payload);
    }
    // Without an answer, but for a line that is another one.
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
         "BondStart: achNicBuf :  eth1; achNicBuf :  eth1 eth0; BondStart flush cmd : ifconfig ifconfig eth0 up ; "
         "BondStop down : ifconfig ifconfig bond0 down; BondStart cmd : echo \"active-backup 3\"  > "
         "/sys/devices/virtual/net/bond0/bonding/mode; BondStart up : ifconfig ifconfig bond0 up; BondStart ifenslave "
         "cmd : ifenslave ifenslave bond0 eth1 eth0; BondStart flush cmd : ip ip addr flush dev eth0; BondStart flush "
         "cmd : ip ip addr flush dev eth1; BondStart flush cmd : ip ip addr flush dev eth10"},
        {"stop", kStop, 0, Joined(kStopSteps),
         "BondStop: BondStop ifenslave cmd : ifenslave ifenslave -d bond0 eth1 eth0; BondStart flush cmd : ip ip addr "
         "flush dev bond0; BondStop down : ifconfig ifconfig bond0 down; BondStart ifconfig cmd : ifconfig ifconfig "
         "eth0 up; BondStart ifconfig cmd : ifconfig ifconfig eth1 up; BondStart ifconfig cmd : ifconfig ifconfig "
         "eth10 up"},
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
        EXPECT_EQ(StatusOf(kStop), 0) << step;
        EXPECT_EQ(tools.TakeLog(), "BondStop: the bond has stopped!") << step;
    }
    tools.Fail({kMode});
    EXPECT_EQ(StatusOf(Start(kRequest)), 0) << "what becomes of the mode is not looked at";
    (void)tools.TakeRuns();
    run.clear();
    for (const std::string& step : kStopSteps) {
        run += (run.empty() ? "" : "; ") + step;
        EXPECT_EQ(FailAt(step, kStop), run);
        EXPECT_EQ(StatusOf(Start(WithLength(BondParts({"0", "1", "2", "3", "4"}, "0")))), -1) << step;
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
    for (const std::size_t at : {0, 8, 17, 26, 35, 45}) {
        for (const u32 length : {0x100U, 3060U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFCU, 0xFFFFFFFFU})
            Refuse(std::string(kRequest).replace(at, 4, Number(length)));
    }
    EXPECT_EQ(StatusOf(Start(WithLength(kRequest.substr(4) + '\0'))), 0) << "bytes behind the parts";
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
    EXPECT_EQ(StatusOf(Start(WithLength(unterminated + Sized("eth1")))), 0);
    EXPECT_STREQ(g_achNicBuf, " eth1 eth0");
    EXPECT_EQ(StatusOf(kStop), 0);
    const std::string name = "fourteen-lette";
    const auto request = WithLength(BondParts({name + "0", name + "1", name + "2", name + "3"}, name + "4"));
    EXPECT_EQ(StatusOf(Start(request)), 0);
    EXPECT_STREQ(g_achNicBuf, " fourteen-lette4 fourteen-lette0 fourteen-lette1 fourteen-lette2 fourteen-lette3");
}

}  // namespace
}  // namespace tessel::test
