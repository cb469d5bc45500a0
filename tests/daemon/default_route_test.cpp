// Default routes without metric, one message at a time: the kernel is the sandbox's, the tools are only noted.
#include "route/monitor/default_route.h"

#include <net/if.h>

#include "route/monitor/netlink.h"
#include "route/priority_table.h"
#include "tessel/priority.h"
#include "tests/support/far.h"
#include "tests/support/noted.h"

namespace tessel::test {
namespace {

using testing::ElementsAreArray;

// A message that a route was added, with the attributes that a row has.
struct RouteMessage {
    RouteMessage& Add(u16 type, const std::string& payload) {
        const rtattr header{.rta_len = static_cast<u16>(RTA_LENGTH(payload.size())), .rta_type = type};
        bytes.append(reinterpret_cast<const char*>(&header), sizeof(header)).append(payload);
        bytes.resize(RTA_ALIGN(bytes.size()));
        return *this;
    }
    RouteMessage& Add(u16 type, u32 number) {
        return Add(type, std::string(reinterpret_cast<const char*>(&number), sizeof(number)));
    }
    void Process() const {
        alignas(nlmsghdr) u8 buffer[256] = {};
        nlmsghdr header{};
        header.nlmsg_len = static_cast<u32>(NLMSG_LENGTH(bytes.size()));
        header.nlmsg_type = RTM_NEWROUTE;
        memcpy(buffer, &header, sizeof(header));
        memcpy(buffer + sizeof(header), bytes.data(), bytes.size());
        ProcessRtMsg(static_cast<const nlmsghdr*>(static_cast<const void*>(buffer)));
    }
    std::string bytes = std::string(1, AF_INET) + std::string(sizeof(rtmsg) - 1, '\0');
};

const std::string kGateway = "\xc0\xa8\x01\x01";  // 192.168.1.1

RouteMessage DefaultThrough(const char* interfaceName) {
    return RouteMessage().Add(RTA_TABLE, 254).Add(RTA_GATEWAY, kGateway).Add(RTA_OIF, if_nametoindex(interfaceName));
}

// What has been kept in mind gets its two seconds and is looked at.
void Settle() {
    while (MsUntilDueRoute() < 3000) {
        std::this_thread::sleep_for(std::chrono::milliseconds(MsUntilDueRoute()));
        InstallDueRoutes();
    }
}

TEST(DefaultRoute, MessagesAreRead) {
    const std::vector<std::string> upToTheInterface = {"NEWROUT: ", "Debug nTable = 254 gateway = 192.168.1.1",
                                                       "find devices, id 2, eth0"};
    const struct {
        const char* description;
        RouteMessage message;
        std::vector<std::string> expectedLines;
        bool isKept;
    } rows[] = {
        {"to a network", RouteMessage().Add(RTA_DST, "\x0a"), {"NEWROUT: ", "RTA_DST "}, false},
        {"to a whole network",
         DefaultThrough("eth0").Add(RTA_DST, std::string("\x0a\0\0\0", 4)),
         {"NEWROUT: ", "RTA_DST 10.0.0.0"},
         false},
        {"for a source, through no gateway",
         RouteMessage().Add(RTA_SRC, kGateway),
         {"NEWROUT: ", "RTA_SRC 192.168.1.1"},
         false},
        {"of no table", RouteMessage().Add(RTA_GATEWAY, kGateway), {"NEWROUT: ", "table id is null"}, false},
        {"of another table",
         RouteMessage().Add(RTA_GATEWAY, kGateway).Add(RTA_TABLE, 100),
         {"NEWROUT: ", "Debug nTable = 100 gateway = 192.168.1.1"},
         false},
        {"on no interface",
         RouteMessage().Add(RTA_GATEWAY, kGateway).Add(RTA_TABLE, 254),
         {"NEWROUT: ", "Debug nTable = 254 gateway = 192.168.1.1", "interface is null"},
         false},
        {"with a metric", DefaultThrough("eth0").Add(RTA_PRIORITY, 10), upToTheInterface, false},
        {"without",
         DefaultThrough("eth0"),
         {"NEWROUT: ", "Debug nTable = 254 gateway = 192.168.1.1", "find devices, id 2, eth0",
          "metric is null, re add this gateway"},
         true},
        {"on an interface that has gone",
         RouteMessage().Add(RTA_TABLE, 254).Add(RTA_GATEWAY, kGateway).Add(RTA_OIF, 99),
         {"NEWROUT: ", "Debug nTable = 254 gateway = 192.168.1.1", "get interface name according index 99 failed",
          "metric is null, re add this gateway"},
         true},
    };
    LoggedLines log(5);
    for (const auto& row : rows) {
        row.message.Process();
        std::vector<std::string> expected;
        for (const std::string& line : row.expectedLines)
            expected.push_back("ProcessRtMsg: " + line);
        EXPECT_THAT(log.Take(), ElementsAreArray(expected)) << row.description;
        EXPECT_EQ(MsUntilDueRoute() < 3000, row.isKept) << row.description;
    }
    Settle();
}

// Default routes on an interface of its own, and what becomes of them when one without metric was added.
struct Replacement {
    const char* description;
    std::vector<std::string> present;  // routes that the kernel has when the time is over
    int addStatus = 0;                 // of the tool that adds the route with metric
    std::string whileAdding = "true";  // what somebody else does then, on interface $v
    int messages = 1;
    int priority = 10;
    std::vector<std::string> expectedTools;  // "add", "del"
    std::vector<std::string> expectedLines;
};

TEST(DefaultRoute, OnlyWhatIsStillThereIsReplaced) {
    const std::string plain = "metric 0";
    const std::string gone = "the route without metric has gone";
    const std::string added = "gateway re add with metric ok";
    const std::string deleted = "GatewayDel ok!";
    const std::string failed = "GatewaySetV4 error";
    const Replacement rows[] = {
        {.description = "it is there",
         .present = {plain},
         .expectedTools = {"add", "del"},
         .expectedLines = {added, deleted}},
        {.description = "it has gone", .present = {}, .expectedTools = {}, .expectedLines = {gone}},
        {.description = "it has one with metric",
         .present = {"metric 10"},
         .expectedTools = {},
         .expectedLines = {gone}},
        {.description = "another table has one",
         .present = {"table 100"},
         .expectedTools = {},
         .expectedLines = {gone}},
        {.description = "it goes while the other one is added",
         .present = {plain},
         .whileAdding = "ip route del default dev $v",
         .expectedTools = {"add"},
         .expectedLines = {added}},
        {.description = "none with metric can be added",
         .present = {plain},
         .addStatus = 2,
         .expectedTools = {"add"},
         .expectedLines = {failed}},
        {.description = "there is one with metric already",
         .present = {plain, "metric 10"},
         .addStatus = 2,
         .expectedTools = {"add", "del"},
         .expectedLines = {failed, deleted}},
        {.description = "no priority",
         .present = {plain},
         .priority = 0,
         .expectedTools = {},
         .expectedLines = {"don't need change priority"}},
        {.description = "a second message gets two seconds of its own",
         .present = {plain},
         .messages = 2,
         .expectedTools = {"add", "del", "add", "del"},
         .expectedLines = {added, deleted, added, deleted}},
    };
    NotedTools tools;
    TNetPrioParamList priorities{};
    std::map<std::string, std::string> toolLines;  // "add" and "del" of each interface
    std::vector<std::string> expectedTools, expectedLines;
    for (const Replacement& row : rows) {
        const std::string name = "v" + std::to_string(&row - rows);
        RunOnDevice("ip link add name " + name + " up type veth && ip addr add 192.168.1.20/24 dev " + name);
        for (const std::string& which : row.present)
            RunOnDevice("ip route append default via 192.168.1.1 dev " + name + " " + which);
        TNetPrioParam& priority = priorities.atPrio[priorities.dwNum++];
        strcpy(priority.achDevName, name.c_str());
        priority.nPriority = row.priority;
        for (const std::string& tool : row.expectedTools)
            expectedTools.push_back(tool + name);
        expectedLines.insert(expectedLines.end(), row.expectedLines.begin(), row.expectedLines.end());
        toolLines["ip route add default via 192.168.1.1 dev " + name + " metric 10"] = "add" + name;
        toolLines["ip -4 route del default dev " + name] = "del" + name;
    }
    ASSERT_EQ(tools.Status(0x11C, {reinterpret_cast<const char*>(&priorities), sizeof(priorities)}), 0);
    (void)tools.TakeRuns();
    std::vector<std::string> runs;
    AnswerTools([&](const std::string& line) {
        runs.push_back(toolLines[line]);
        if (!runs.back().starts_with("add")) return ToolAnswer{};
        const std::string name = runs.back().substr(3);
        const Replacement& row = rows[std::stoi(name.substr(1))];
        RunOnDevice("v=" + name + "; " + row.whileAdding);
        return ToolAnswer{.output = "", .status = row.addStatus};
    });
    for (const Replacement& row : rows) {
        for (int i = 0; i < row.messages; ++i)
            DefaultThrough(("v" + std::to_string(&row - rows)).c_str()).Process();
    }
    LoggedLines log(5);
    Settle();
    EXPECT_THAT(runs, ElementsAreArray(expectedTools));
    std::vector<std::string> lines = log.Take();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("ProcessRtMsg: "); });
    for (std::string& line : lines)
        line.erase(0, strlen("ProcessRtMsg: "));
    EXPECT_THAT(lines, ElementsAreArray(expectedLines));
}

}  // namespace
}  // namespace tessel::test
