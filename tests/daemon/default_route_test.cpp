// Default routes without metric, one message at a time: the kernel is the sandbox's, the tools are only noted.
#include "route/monitor/default_route.h"

#include "route/monitor/netlink.h"
#include "tessel/priority.h"
#include "tests/support/far.h"
#include "tests/support/logged.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

std::string Attribute(u16 type, const std::string& payload) {
    const rtattr header{.rta_len = static_cast<u16>(RTA_LENGTH(payload.size())), .rta_type = type};
    return Padded(std::string(Bytes(header)) + payload, RTA_SPACE(payload.size()));
}

// A message that a route with these attributes was added.
void Process(const std::string& attributes) {
    struct {
        nlmsghdr header;
        rtmsg route;
        char attributes[128];
    } message{};
    message.header.nlmsg_len = static_cast<u32>(NLMSG_LENGTH(sizeof(rtmsg) + attributes.size()));
    message.header.nlmsg_type = RTM_NEWROUTE;
    message.route.rtm_family = AF_INET;
    attributes.copy(message.attributes, sizeof(message.attributes));
    ProcessRtMsg(&message.header);
}

const std::string kGateway = "\xc0\xa8\x01\x01";  // 192.168.1.1

const std::string kThroughGateway = Attribute(RTA_GATEWAY, kGateway);
const std::string kInMain = kThroughGateway + Attribute(RTA_TABLE, Number(254));

std::string DefaultThrough(const std::string& interfaceName) {
    return kInMain + Attribute(RTA_OIF, Number(if_nametoindex(interfaceName.c_str())));
}

// What has been kept in mind gets its two seconds and is looked at.
void Settle() {
    while (MsUntilDueRoute() < 3000) {
        std::this_thread::sleep_for(milliseconds(MsUntilDueRoute()));
        InstallDueRoutes();
    }
}

TEST(DefaultRoute, MessagesAreRead) {
    const std::string toTheMainTable = "Debug nTable = 254 gateway = 192.168.1.1; ";
    const std::string kept = "; metric is null, re add this gateway";
    const std::tuple<const char*, std::string, std::string> rows[] = {
        // with what is logged behind "NEWROUT: "
        {"to a network", Attribute(RTA_DST, "\x0a"), "RTA_DST "},
        {"to a whole network", DefaultThrough("eth0") + Attribute(RTA_DST, "\x0a\0\0\0"s), "RTA_DST 10.0.0.0"},
        {"for a source, through no gateway", Attribute(RTA_SRC, kGateway), "RTA_SRC 192.168.1.1"},
        {"of no table", kThroughGateway, "table id is null"},
        {"of another table", kThroughGateway + Attribute(RTA_TABLE, Number(100)),
         "Debug nTable = 100 gateway = 192.168.1.1"},
        {"on no interface", kInMain, toTheMainTable + "interface is null"},
        {"with a metric", DefaultThrough("eth0") + Attribute(RTA_PRIORITY, Number(10)),
         toTheMainTable + "find devices, id 2, eth0"},
        {"without", DefaultThrough("eth0"), toTheMainTable + "find devices, id 2, eth0" + kept},
        {"on an interface that has gone", kInMain + Attribute(RTA_OIF, Number(99)),
         toTheMainTable + "get interface name according index 99 failed" + kept},
    };
    LoggedTools tools;
    for (const auto& [description, attributes, lines] : rows) {
        Process(attributes);
        EXPECT_EQ(tools.TakeLog(), "ProcessRtMsg: NEWROUT: ; " + lines) << description;
        EXPECT_EQ(MsUntilDueRoute() < 3000, lines.ends_with(kept)) << description;
    }
    Settle();
}

// Default routes on an interface of its own, and what becomes of them when one without metric was added.
struct Replacement {
    std::string present;     // routes that the kernel has when the time is over: last byte of the gateway, metric
    const char* tools = "";  // that are run: '+' adds the route with metric, '-' deletes the one without
    std::string log;
    int addStatus = 0;
    bool goesMeanwhile = false;  // somebody else deletes the route while the other one is added
    int priority = 10;
    int messages = 1;
};

TEST(DefaultRoute, OnlyWhatIsStillThereIsReplaced) {
    const std::string gone = "ProcessRtMsg: the route without metric has gone";
    const std::string added = "ProcessRtMsg: gateway re add with metric ok";
    const std::string deleted = "; ProcessRtMsg: GatewayDel ok!";
    const std::string failed = "ProcessRtMsg: GatewaySetV4 error";
    const Replacement rows[] = {
        {"1 metric 0; 2 metric 0", "+-", added + deleted},
        {"1 metric 10", "", gone},
        {"1 table 100", "", gone},
        {"1 metric 0", "+", added, 0, true},
        {"1 metric 0", "+", failed, 2},
        {"1 metric 0; 1 metric 10", "+-", failed + deleted, 2},
        {.present = "1 metric 0", .log = "ProcessRtMsg: don't need change priority", .priority = 0},
        // A second message gets two seconds of its own.
        {"1 metric 0", "+-+-", added + deleted + "; " + added + deleted, 0, false, 10, 2},
    };
    LoggedTools tools;
    TNetPrioParamList priorities{};
    std::vector<std::string> expectedRuns, expectedLines;
    for (const Replacement& row : rows) {
        const std::string name = "v" + std::to_string(&row - rows);
        RunOnDevice("ip link add name " + name + " up type veth && ip addr add 192.168.1.20/24 dev " + name);
        for (const std::string& which : Split(row.present))
            RunOnDevice("ip route append default dev " + name + " via 192.168.1." + which);
        TNetPrioParam& priority = priorities.atPrio[priorities.dwNum++];
        strcpy(priority.achDevName, name.c_str());
        priority.nPriority = row.priority;
        for (const char tool : std::string(row.tools))
            expectedRuns.push_back(tool == '+' ? "ip route add default via 192.168.1.1 dev " + name + " metric 10"
                                               : "ip -4 route del default dev " + name);
        expectedLines.push_back(row.log);
    }
    ASSERT_EQ(tools.Status(0x11C, Bytes(priorities)), 0);
    AnswerTools([&](const std::string& line) {
        if (line.find(" add ") == std::string::npos) return ToolAnswer{};
        const std::string name = line.substr(line.find(" dev ") + 5, 2);
        const Replacement& row = rows[name[1] - '0'];
        if (row.goesMeanwhile) RunOnDevice("ip route del default dev " + name);
        return ToolAnswer{.output = "", .status = row.addStatus};
    });
    // By now packets take another gateway than the message's: that one counts.
    for (const Replacement& row : rows) {
        for (int i = 0; i < row.messages; ++i)
            Process(DefaultThrough("v" + std::to_string(&row - rows)) + Attribute(RTA_GATEWAY, "\xc0\xa8\x01\x09"));
    }
    (void)tools.TakeRuns();
    (void)tools.TakeLines();
    Settle();
    EXPECT_EQ(Joined(tools.TakeRuns()), Joined(expectedRuns));
    std::vector<std::string> lines = tools.TakeLines();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("ProcessRtMsg: "); });
    EXPECT_EQ(Joined(lines), Joined(expectedLines));
}

TEST(DefaultRoute, ARequestWaitsForTheReplacement) {
    LoggedTools tools;
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip route add default via 192.168.1.1");
    TNetPrioParamList priorities{.dwNum = 1, .atPrio = {{.achDevName = "eth0", .nPriority = 10}}};
    ASSERT_EQ(tools.Status(0x11C, Bytes(priorities)), 0);
    (void)tools.TakeRuns();
    std::thread client;
    AnswerTools([&](const std::string& line) {
        if (line.find(" add ") != std::string::npos) {
            client = std::thread([&] { EXPECT_EQ(tools.Status(0x116, "\2"s + std::string(17, '\0')), 0); });
            std::this_thread::sleep_for(200ms);
        }
        return ToolAnswer{};
    });
    Process(DefaultThrough("eth0"));
    Settle();
    client.join();
    EXPECT_EQ(Joined(tools.TakeRuns()),
              "ip route add default via 192.168.1.1 dev eth0 metric 10; ip -4 route del "
              "default dev eth0; ip -4 route del default")
        << "and what it deletes does not come back";
}

TEST(DefaultRoute, IsLookedForAgainWhenTheKernelCouldNotBeAsked) {
    LoggedTools tools(2);
    TNetPrioParamList priorities{.dwNum = 1, .atPrio = {{.achDevName = "eth0", .nPriority = 10}}};
    ASSERT_EQ(tools.Status(0x11C, Bytes(priorities)), 0);
    Process(DefaultThrough("eth0"));
    std::this_thread::sleep_for(milliseconds(MsUntilDueRoute()));
    {
        const DescriptorShortage shortage;
        InstallDueRoutes();
    }
    EXPECT_LT(MsUntilDueRoute(), 3000);
    Settle();
}

}  // namespace
}  // namespace tessel::test
