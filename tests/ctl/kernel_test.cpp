// The one reader of the kernel, and what the guard takes from it: the sandbox's own links, routes and connections.
#include "client/ctl/kernel.h"

#include "client/ctl/perform.h"
#include "tests/ctl/tool.h"

namespace tessel::test {
namespace {

class KernelReader : public testing::Test {
  protected:
    void SetUp() override {
        Prepare({"ip link set eth0 mtu 1400", "ip addr add 192.168.1.20/24 dev eth0",
                 "ip addr add 2001:db8::5/64 dev eth0 nodad", "ip addr add 10.9.0.1 peer 10.9.0.2/32 dev eth1"});
    }
};

Json Parsed(const char* text) {
    return Json::parse(text);
}

TEST_F(KernelReader, LinksHaveTheirAddresses) {
    Json link = KernelLink("eth0");
    Json& addresses = link["addresses"];
    for (auto one = addresses.begin(); one != addresses.end();)  // the kernel's own comes when it is ready
        one = TextOf(*one, "address").starts_with("fe80") ? addresses.erase(one) : one + 1;
    EXPECT_EQ(link, Parsed(R"({"interface": "eth0", "state": "up", "mtu": 1400, "mac": "02:00:00:00:00:00",
        "kind": "veth", "addresses": [
        {"address": "192.168.1.20", "prefix_length": 24, "family": "inet", "scope": "global", "dynamic": false,
         "tentative": false},
        {"address": "2001:db8::5", "prefix_length": 64, "family": "inet6", "scope": "global", "dynamic": false,
         "tentative": false}]})"));
    EXPECT_EQ(KernelLink("eth1")["addresses"][0]["address"], "10.9.0.1");  // its own, not the other end's
    EXPECT_EQ(KernelLink("lo")["mac"], nullptr);
    EXPECT_EQ(KernelLink("lo")["addresses"][0]["scope"], "host");
    EXPECT_TRUE(KernelLink("eth9").is_null());
    Prepare({"ip link set eth1 down", "ip -n far link set far2 down"});
    EXPECT_EQ(KernelLink("eth1")["state"], "down");
    EXPECT_TRUE(Eventually([] { return KernelLink("eth2")["state"] == "no carrier"; }));  // the kernel takes its time
    EXPECT_EQ(MissingInterface("eth9"), "there is no interface eth9");
    EXPECT_EQ(MissingInterface(""), "");
}

TEST_F(KernelReader, RoutesRulesAndNeighbours) {
    Prepare({"ip route add default via 192.168.1.1 metric 7", "ip route add 10.1.0.0/16 dev eth0 table 100",
             "ip route add blackhole 10.2.0.0/16",
             "ip route add 10.3.0.0/16 nexthop via 192.168.1.3 nexthop via 192.168.1.4",
             "ip -6 route add default via 2001:db8::1 dev eth0 expires 600",
             "ip rule add pref 50 from 192.168.1.0/24 fwmark 7 table 100", "ip rule add pref 51 iif eth0 table 100",
             "ip neigh add 192.168.1.9 lladdr 02:00:00:00:00:99 dev eth0 nud permanent"});
    Json routes = KernelRoutes(TESSEL_FAMILY_INET);
    std::vector<std::string> texts;
    for (const Json& route : routes)
        texts.push_back(TextOf(route, "destination") + " " + TextOf(route, "gateway") + " " +
                        TextOf(route, "interface"));
    EXPECT_THAT(texts, testing::UnorderedElementsAre("default 192.168.1.1 eth0", "192.168.1.0/24  eth0",
                                                     "10.9.0.2/32  eth1", "10.3.0.0/16 192.168.1.3 eth0"));
    EXPECT_EQ(routes[0],
              Parsed(R"({"destination": "default", "gateway": "192.168.1.1", "interface": "eth0", "metric": 7,
        "table": 254, "family": "inet", "learnt": false})"));
    EXPECT_EQ(KernelRoutes(TESSEL_FAMILY_INET, 100).size(), 1U);
    for (const Json& route : KernelRoutes(TESSEL_FAMILY_BOTH)) {
        const bool isLearnt = TextOf(route, "gateway") == "2001:db8::1";
        EXPECT_EQ(route["learnt"], isLearnt) << route;
    }

    const Json rules = KernelRules(TESSEL_FAMILY_INET);
    ASSERT_EQ(rules.size(), 5U);
    EXPECT_EQ(rules[1], Parsed(R"({"pref": 50, "from": "192.168.1.0/24", "fwmark": 7, "table": 100, "family": "inet",
        "other_conditions": false})"));
    EXPECT_EQ(rules[2]["other_conditions"], true);
    EXPECT_EQ(rules[0]["from"], "all");

    const Json neighbours = KernelNeighbours(TESSEL_FAMILY_INET);
    EXPECT_THAT(neighbours, testing::Contains(Parsed(R"({"address": "192.168.1.9", "mac": "02:00:00:00:00:99",
        "interface": "eth0", "state": "permanent", "family": "inet"})")));

    // the target, the source, the mark; the gateway, or the problem
    const std::tuple<const char*, const char*, u32, const char*> ways[] = {
        {"8.8.8.8", nullptr, 0, "192.168.1.1"},
        {"10.1.0.1", "192.168.1.20", 7, "on the link"},
        {"10.1.0.1", "192.168.1.20", 0, "192.168.1.1"},
        {"192.168.1.20", nullptr, 0, "local"},
        {"10.2.0.1", nullptr, 0, "a route drops it"},
        {"8.8.8.8", "192.168.1.99", 0, "192.168.1.99 is not an address of this device"}};
    for (const auto& [target, from, mark, expected] : ways) {
        const auto source = from == nullptr ? std::nullopt : ParseHost(from);
        std::string found;
        const Json way = KernelRouteTo(*ParseHost(target), source ? &*source : nullptr,
                                       mark == 0 ? std::nullopt : std::optional(mark), found);
        if (!way.is_null())
            found = way["local"] == true ? "local" : way["gateway"].is_null() ? "on the link" : TextOf(way, "gateway");
        EXPECT_EQ(found, expected) << target;
    }
    Prepare({"ip rule del pref 50", "ip rule del pref 51", "ip route flush table 100",
             "ip route del blackhole 10.2.0.0/16", "ip route del default", "ip -6 route del default"});
    std::string problem;
    EXPECT_TRUE(KernelRouteTo(*ParseHost("8.8.8.8"), nullptr, std::nullopt, problem).is_null());
    EXPECT_EQ(problem, "no route leads there");
}

TEST_F(KernelReader, FollowsChanges) {
    KernelFollower follower;
    Prepare({"ip route add 10.5.0.0/16 via 192.168.1.1", "ip route del 10.5.0.0/16", "ip rule add pref 60 table 60",
             "ip rule del pref 60", "ip addr add 10.6.0.1/24 dev eth0", "ip link set eth0 mtu 1300"});
    std::vector<std::string> texts;
    bool isCut = false;
    for (const Json& change : follower.Next(isCut)) {
        if (change["event"] == "rule" || TextOf(change, "destination") == "10.5.0.0/16" ||
            TextOf(change, "address") == "10.6.0.1" || change["event"] == "link")
            texts.push_back(TextOf(change, "event") + " " + TextOf(change, "action"));
    }
    EXPECT_FALSE(isCut);
    EXPECT_THAT(texts,
                ElementsAre("route added", "route removed", "rule added", "rule removed", "addr added", "link added"));
    // More than its socket holds.
    Prepare(
        {"for i in $(seq 1 250); do echo route add 10.7.0.$i via 192.168.1.1; echo route del 10.7.0.$i; done | "
         "ip -batch -"});
    (void)follower.Next(isCut);
    EXPECT_TRUE(isCut);
}

TEST_F(KernelReader, SaysWhyAGatewayCannotBeReached) {
    Prepare({"ip link set eth2 down"});
    const std::tuple<const char*, const char*, const char*> cases[] = {
        // gateway, interface
        {"192.168.1.1", "eth0", ""},
        {"192.168.1.1", "", ""},
        {"192.168.9.1", "eth0", "192.168.9.1 is in no network of eth0 (192.168.1.20/24)"},
        {"192.168.9.1", "eth2", "eth2 is down"},
        {"192.168.9.1", "eth9", "there is no interface eth9"},
        {"2001:db9::1", "eth1", "2001:db9::1 is in no network of eth1"},
        {"fe80::1", "", "fe80::1 is on every link: name the interface"},
        {"fe80::1", "eth0", ""}};
    for (const auto& [gateway, interfaceName, expected] : cases) {
        const std::string why = WhyUnreachable(*ParseHost(gateway), interfaceName);
        EXPECT_TRUE(*expected == '\0' ? why.empty() : why.find(expected) != std::string::npos)
            << gateway << ": " << why;
    }
}

TEST_F(KernelReader, GuardKnowsEverySession) {
    const UniqueFd server = BoundTo(23, AF_INET6);  // has IPv4 peers as mapped addresses
    const UniqueFd client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in device{};
    device.sin_family = AF_INET;
    device.sin_port = htons(23);
    inet_pton(AF_INET, "192.168.1.20", &device.sin_addr);
    ASSERT_EQ(connect(client.Get(), reinterpret_cast<const sockaddr*>(&device), sizeof(device)), 0);
    const UniqueFd accepted(accept(server.Get(), nullptr, nullptr));

    Options options;
    const RemoteSession remote("::ffff:192.168.1.77", "192.168.1.20");
    auto sessions = KnownSessions(options);
    ASSERT_EQ(sessions.size(), 2U);
    EXPECT_EQ(sessions[0].text, "your session comes from 192.168.1.77");
    EXPECT_EQ(sessions[1].text, "192.168.1.20 is connected to port 23");
    EXPECT_EQ(sessions[1].device, ParseHost("192.168.1.20"));
    EXPECT_EQ(CutsSessionAt(*ParseNetwork("192.168.1.20/24")), "your session runs over 192.168.1.20");
    EXPECT_EQ(CutsSessionAt(*ParseHost("192.168.1.21")), "");
    EXPECT_EQ(CutsSessionOn("eth0"), "your session runs over 192.168.1.20");
    EXPECT_EQ(CutsSessionOn("eth1"), "");
    options.protect = ParseHost("192.168.1.20");
    sessions = KnownSessions(options);  // the protected one is the connected one
    ASSERT_EQ(sessions.size(), 1U);
    EXPECT_EQ(sessions[0].text, "--protect names 192.168.1.20");
}

}  // namespace
}  // namespace tessel::test
