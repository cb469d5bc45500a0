// Default routes without metric, one message at a time: the kernel is the sandbox's, the tools are only noted.
#include "route/monitor/default_route.h"

#include "route/monitor/netlink.h"
#include "route/priority_table.h"
#include "tessel/priority.h"
#include "tests/support/far.h"
#include "tests/support/noted.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

// A message that a route was added, with the attributes that a row has.
struct RouteMessage {
    RouteMessage& Add(u16 type, const std::string& payload) {
        const rtattr header{.rta_len = static_cast<u16>(RTA_LENGTH(payload.size())), .rta_type = type};
        bytes.append(reinterpret_cast<const char*>(&header), sizeof(header)).append(payload);
        bytes.resize(RTA_ALIGN(bytes.size()));
        return *this;
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

const std::string kMain = Number(254);

RouteMessage DefaultThrough(const std::string& interfaceName) {
    const u32 index = if_nametoindex(interfaceName.c_str());
    return RouteMessage().Add(RTA_TABLE, kMain).Add(RTA_GATEWAY, kGateway).Add(RTA_OIF, Number(index));
}

// What has been kept in mind gets its two seconds and is looked at.
void Settle() {
    while (MsUntilDueRoute() < 3000) {
        std::this_thread::sleep_for(milliseconds(MsUntilDueRoute()));
        InstallDueRoutes();
    }
}

// Lines of ProcessRtMsg without its name.
std::string TextOf(std::vector<std::string> lines) {
    for (std::string& line : lines)
        line.erase(0, line.starts_with("ProcessRtMsg: ") ? strlen("ProcessRtMsg: ") : 0);
    return Joined(lines);
}

TEST(DefaultRoute, MessagesAreRead) {
    const std::string toTheMainTable = "Debug nTable = 254 gateway = 192.168.1.1; ";
    const std::string kept = "; metric is null, re add this gateway";
    const RouteMessage throughGateway = RouteMessage().Add(RTA_GATEWAY, kGateway);
    const std::tuple<const char*, RouteMessage, std::string> rows[] = {
        // with what is logged behind "NEWROUT: "
        {"to a network", RouteMessage().Add(RTA_DST, "\x0a"), "RTA_DST "},
        {"to a whole network", DefaultThrough("eth0").Add(RTA_DST, std::string("\x0a\0\0\0", 4)), "RTA_DST 10.0.0.0"},
        {"for a source, through no gateway", RouteMessage().Add(RTA_SRC, kGateway), "RTA_SRC 192.168.1.1"},
        {"of no table", throughGateway, "table id is null"},
        {"of another table", RouteMessage(throughGateway).Add(RTA_TABLE, Number(100)),
         "Debug nTable = 100 gateway = 192.168.1.1"},
        {"on no interface", RouteMessage(throughGateway).Add(RTA_TABLE, kMain), toTheMainTable + "interface is null"},
        {"with a metric", DefaultThrough("eth0").Add(RTA_PRIORITY, Number(10)),
         toTheMainTable + "find devices, id 2, eth0"},
        {"without", DefaultThrough("eth0"), toTheMainTable + "find devices, id 2, eth0" + kept},
        {"on an interface that has gone", RouteMessage(throughGateway).Add(RTA_TABLE, kMain).Add(RTA_OIF, Number(99)),
         toTheMainTable + "get interface name according index 99 failed" + kept},
    };
    LoggedLines log(5);
    for (const auto& [description, message, lines] : rows) {
        message.Process();
        EXPECT_EQ(TextOf(log.Take()), "NEWROUT: ; " + lines) << description;
        EXPECT_EQ(MsUntilDueRoute() < 3000, lines.ends_with(kept)) << description;
    }
    Settle();
}

// Default routes on an interface of its own, and what becomes of them when one without metric was added.
struct Replacement {
    std::string present;     // routes that the kernel has when the time is over: last byte of the gateway, metric
    const char* tools = "";  // that are run: "add", "del"
    std::string log;
    int addStatus = 0;                 // of the tool that adds the route with metric
    const char* whileAdding = "true";  // what somebody else does then, on interface $v
    int priority = 10;
    int messages = 1;
};

TEST(DefaultRoute, OnlyWhatIsStillThereIsReplaced) {
    const std::string gone = "the route without metric has gone";
    const std::string added = "gateway re add with metric ok";
    const std::string deleted = "; GatewayDel ok!";
    const std::string failed = "GatewaySetV4 error";
    const Replacement rows[] = {
        {"1 metric 0; 2 metric 0", "add; del", added + deleted},
        {"1 metric 10", "", gone},
        {"1 table 100", "", gone},
        {"1 metric 0", "add", added, 0, "ip route del default dev $v"},
        {"1 metric 0", "add", failed, 2},
        {"1 metric 0; 1 metric 10", "add; del", failed + deleted, 2},
        {.present = "1 metric 0", .log = "don't need change priority", .priority = 0},
        // A second message gets two seconds of its own.
        {"1 metric 0", "add; del; add; del", added + deleted + "; " + added + deleted, 0, "true", 10, 2},
    };
    NotedTools tools;
    TNetPrioParamList priorities{};
    std::map<std::string, std::string> toolLines;  // "add" and "del" of each interface
    std::vector<std::string> expectedTools, expectedLines;
    for (const Replacement& row : rows) {
        const std::string name = "v" + std::to_string(&row - rows);
        RunOnDevice("ip link add name " + name + " up type veth && ip addr add 192.168.1.20/24 dev " + name);
        for (const std::string& which : Split(row.present))
            RunOnDevice("ip route append default dev " + name + " via 192.168.1." + which);
        TNetPrioParam& priority = priorities.atPrio[priorities.dwNum++];
        strcpy(priority.achDevName, name.c_str());
        priority.nPriority = row.priority;
        for (const std::string& tool : Split(row.tools))
            expectedTools.push_back(tool + name);
        expectedLines.push_back(row.log);
        toolLines["ip route add default via 192.168.1.1 dev " + name + " metric 10"] = "add" + name;
        toolLines["ip -4 route del default dev " + name] = "del" + name;
    }
    ASSERT_EQ(tools.Status(0x11C, Bytes(priorities)), 0);
    std::vector<std::string> runs;
    AnswerTools([&](const std::string& line) {
        runs.push_back(toolLines[line]);
        if (!runs.back().starts_with("add")) return ToolAnswer{};
        const std::string name = runs.back().substr(3);
        const Replacement& row = rows[std::stoi(name.substr(1))];
        RunOnDevice("v=" + name + "; " + row.whileAdding);
        return ToolAnswer{.output = "", .status = row.addStatus};
    });
    // By now packets take another gateway than the message's: that one counts.
    for (const Replacement& row : rows) {
        for (int i = 0; i < row.messages; ++i)
            DefaultThrough("v" + std::to_string(&row - rows)).Add(RTA_GATEWAY, "\xc0\xa8\x01\x09").Process();
    }
    LoggedLines log(5);
    Settle();
    EXPECT_EQ(Joined(runs), Joined(expectedTools));
    std::vector<std::string> lines = log.Take();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("ProcessRtMsg: "); });
    EXPECT_EQ(TextOf(lines), Joined(expectedLines));
}

TEST(DefaultRoute, IsLookedForAgainWhenTheKernelCouldNotBeAsked) {
    NotedTools tools;
    TNetPrioParamList priorities{.dwNum = 1, .atPrio = {{.achDevName = "eth0", .nPriority = 10}}};
    ASSERT_EQ(tools.Status(0x11C, Bytes(priorities)), 0);
    DefaultThrough("eth0").Process();
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
