// Gateways and priorities: a daemon with tables of its own, beside the sandbox's real routes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "client/ctl/complete.h"
#include "client/ctl/next_hop.h"
#include "tests/unit/ctl_run.h"
#include <nlohmann/json.hpp>

namespace {

using namespace tessel::test;
using nlohmann::ordered_json;
using tessel::ctl::HostText;
using testing::ElementsAre;
using testing::HasSubstr;

// Keeps gateways by family and interface, and priorities as the contract has it; a test may break the rules.
struct Device {
    std::map<std::pair<int, std::string>, TNetGateway> gateways;
    TNetPrioParamList priorities{};
    std::string learnt;        // the interface whose IPv6 gateway is
    std::string refused;       // a gateway that is not taken
    bool ignoresSets = false;  // answers success all the same
    std::string whenSet;       // run by a shell when priorities are set
    std::vector<u32> changes;  // codes, in order
    std::vector<std::size_t> setBytes;

    std::string operator()(const SeenRequest& request) {
        if (request.type != TESSEL_CMD_GATEWAY_GET && request.type != TESSEL_CMD_PRIORITY_GET)
            changes.push_back(request.type);
        const auto place = RecordOf<TNetGatewayReq>(request);
        const std::pair<int, std::string> key{place.wSinFamily, place.achDevName};
        switch (request.type) {
            case TESSEL_CMD_GATEWAY_GET: {
                const bool isLearnt = key.first == TESSEL_FAMILY_INET6 && key.second == learnt;
                const i32 result = isLearnt ? TESSEL_RESULT_LEARNT : key.second == "eth9" ? -1 : 0;
                return FakeDaemon::Message(TNetGatewayGetReply{.nResult = result, .tGateway = gateways[key]});
            }
            case TESSEL_CMD_GATEWAY_DEL: {
                const bool isAbsent = HostText(gateways[key]).empty();
                gateways[key] = {};
                return Status(isAbsent && key.first == TESSEL_FAMILY_INET ? -1 : 0);
            }
            case TESSEL_CMD_GATEWAY_SET:
                setBytes.push_back(request.payload.size());
                return Status(Set(RecordOf<TNetGatewaySetReq>(request)));
            case TESSEL_CMD_PRIORITY_GET:
                return FakeDaemon::Message(priorities);
            default:
                SetPriorities(RecordOf<TNetPrioParamList>(request));
                return Status(0);
        }
    }

    i32 Set(const TNetGatewaySetReq& request) {
        TNetGateway& gateway = gateways[{request.tGateway.wSinFamily, request.achDevName}];
        const bool isThere = request.tGateway.wSinFamily == TESSEL_FAMILY_INET && !HostText(gateway).empty();
        if (isThere || HostText(request.tGateway) == refused) return -1;
        if (!ignoresSets) gateway = request.tGateway;
        return 0;
    }
    void SetPriorities(const TNetPrioParamList& list) {
        const bool isFirst = priorities.dwNum == 0;
        if (isFirst) priorities = list;
        for (u32 i = 0; !isFirst && i < list.dwNum; ++i) {
            const std::string name = list.atPrio[i].achDevName;
            for (TNetPrioParam& entry : priorities.atPrio) {
                if (!std::string(entry.achDevName).starts_with(name)) continue;
                entry.nPriority = list.atPrio[i].nPriority;
                break;
            }
        }
        if (!whenSet.empty()) {
            EXPECT_EQ(std::system(whenSet.c_str()), 0);
        }
    }
};

class Gateways : public testing::Test {
  protected:
    Gateways() {
        Prepare({"ip addr add 192.168.1.20/24 dev eth0"});
        Has("eth0", "192.168.1.1");
    }
    ~Gateways() override {
        Prepare({"ip addr flush dev eth0 scope global", "ip addr flush dev eth1 scope global", "ip link set eth2 up"});
        unsetenv("SSH_CONNECTION");
    }
    void Has(const char* interfaceName, const char* text) {
        const TNetGateway gateway = *tessel::ctl::ParseHost(text);
        device_.gateways[{gateway.wSinFamily, interfaceName}] = gateway;
    }
    std::string Tells(const char* interfaceName, int family = TESSEL_FAMILY_INET) {
        return HostText(device_.gateways[{family, interfaceName}]);
    }
    Device device_;
    FakeDaemon daemon_{[this](const SeenRequest& request) { return device_(request); }};
};

TEST_F(Gateways, ShowPutsDaemonAndKernelTogether) {
    Prepare({"ip route add default via 192.168.1.1 dev eth0 metric 7",
             "ip route add default via 192.168.1.2 dev eth0 metric 9"});
    Has("eth1", "fe80::1");
    device_.learnt = "eth1";
    device_.priorities = {2, {{}, {"eth0", 10}, {"eth1", 20}}};
    EXPECT_EQ(RunLine("-g gateway gateway show dev eth0 -4").out, "192.168.1.1\n");
    EXPECT_EQ(RunLine("gateway").out,
              "INTERFACE  GATEWAY      METRIC  MARKS\n"
              "eth0       192.168.1.1  7       priority 10 is not in effect\n"
              "eth0       192.168.1.2  9       further default route: the daemon does not tell it\n"
              "eth1       fe80::1      -       learnt\n");
    EXPECT_EQ(RunLine("gateway show dev eth0 -j").out,
              R"([{"interface":"eth0","family":"inet","gateway":"192.168.1.1","learnt":false,"metric":7,"priority":10,)"
              R"("table":254,"further":[)"
              "\n "
              R"({"gateway":"192.168.1.2","learnt":false,"metric":9}]},)"
              "\n "
              R"({"interface":"eth0","family":"inet6","gateway":null,"learnt":false,"metric":null,"priority":null,)"
              R"("table":254,"further":[]}])"
              "\n");
    EXPECT_EQ(RunLine("priority").out,
              "INTERFACE  PRIORITY  GATEWAY      METRIC\n"
              "eth0       10        192.168.1.1  7\n"
              "eth1       20        -            -\n");
    ExpectAll({{"gateway show dev eth9", 1, "there is no interface eth9"}});
}

TEST_F(Gateways, ACauseIsNamedForEveryRefusalOfTheKernel) {
    Prepare(
        {"ip route add default via 192.168.1.1 dev eth0", "ip addr add 10.0.0.1/8 dev eth1", "ip link set eth2 down"});
    const std::pair<std::string, const char*> cases[] = {
        {"192.168.9.1 dev eth0", "192.168.9.1 is in no network of eth0 (192.168.1.20/24)."},
        {"192.168.1.7 dev eth0", "eth0 already has 192.168.1.1."},
        {"10.0.0.7 dev eth1", "the default route of eth0 has the same metric 0"},
        {"10.0.0.7 dev eth2", "eth2 is down."},
        {"10.0.0.7 dev eth9", "there is no interface eth9."},
        {"10.0.0.1 dev eth1", "10.0.0.1 is eth1's own address."},
    };
    for (const auto& [place, cause] : cases) {
        device_.refused = place.substr(0, place.find(' '));
        ExpectAll({{"gateway set " + place, 1, cause}});
    }
    EXPECT_EQ(RunLine("-n gateway set 192.168.1.254 dev eth0").out,
              "request  0x10F gateway_set   interface eth0   gateway 192.168.1.254   family inet, 36 bytes\n"
              "runs     ip route add default via 192.168.1.254 dev eth0 metric 0\n"
              "note     eth0 already has 192.168.1.1: \"add\" will fail; use \"gateway replace\"\n");
}

TEST_F(Gateways, ChangesAreReadBack) {
    EXPECT_EQ(RunLine("gateway set dev eth1 10.0.0.7").out, "eth1   gateway 10.0.0.7 set\n");
    EXPECT_EQ(Tells("eth1"), "10.0.0.7");
    ExpectStatus(0, {"gateway set 10.0.0.7 table 5"});
    EXPECT_THAT(device_.setBytes, ElementsAre(36, 40)) << "the main table is none";
    // What the daemon takes for there already, because the text begins the same (0x110 tells the longer one).
    Has("eth0", "fe80::1234");
    device_.ignoresSets = true;
    ExpectAll({{"gateway set fe80::1 dev eth0", 5, "eth0 has fe80::1234, which the daemon takes for the same"}});
    // The kernel's further routes count as well: the daemon tells the first one only.
    Prepare({"ip route add default via 192.168.1.9 dev eth0 metric 9"});
    device_.gateways.clear();
    ExpectStatus(0, {"gateway set 192.168.1.9 dev eth0"});
}

TEST_F(Gateways, DeletionSaysTheSameOfBothFamilies) {
    EXPECT_EQ(RunLine("gateway del dev eth0").out, "eth0   gateway 192.168.1.1 deleted\n") << "IPv6 is passed over";
    EXPECT_THAT(device_.changes, ElementsAre(0x116));
    for (const char* options : {"", " -4", " -6"}) {
        const ToolRun run = RunLine(std::string("gateway del dev eth0") + options);
        EXPECT_EQ(run.status, 1) << options;
        EXPECT_EQ(run.err, "tesselctl: gateway del dev eth0: nothing to delete, eth0 has no gateway\n");
    }
    ExpectAll({{"gateway del dev eth9", 1, "there is no interface eth9"}});
    Has("eth0", "192.168.1.1");
    Has("eth0", "fe80::1");
    EXPECT_EQ(ordered_json::parse(RunLine("gateway del dev eth0 -j").out).size(), 2U);
    // A default route without a gateway: the daemon does not tell it, but deletes it.
    Prepare({"ip -6 route add default dev eth0 metric 3"});
    EXPECT_EQ(RunLine("gateway del dev eth0").out, "eth0   default route (inet6) deleted\n");
    Prepare({"ip -6 route del default dev eth0 metric 3"});
    EXPECT_EQ(RunLine("-n gateway del -6").out,
              "request  0x116 gateway_del   family inet6, 18 bytes\nruns     ip -6 route flush default\n"
              "note     a family without a gateway is passed over\n");
}

TEST_F(Gateways, ReplacingIsTwoStepsAndPutsTheOldOneBack) {
    EXPECT_EQ(RunLine("gateway replace 192.168.1.254 dev eth0").err,
              "note: two steps: 192.168.1.1 was deleted, then 192.168.1.254 added\n");
    EXPECT_THAT(device_.changes, ElementsAre(0x116, 0x10F));
    device_.refused = "192.168.9.1";
    ExpectAll({{"gateway replace 192.168.9.1 dev eth0", 1,
                "(192.168.1.20/24). The old gateway 192.168.1.254 is set again.\n"}});
    EXPECT_EQ(Tells("eth0"), "192.168.1.254");
    device_.changes.clear();
    ExpectStatus(0, {"gateway replace 10.0.0.7 dev eth1"});
    EXPECT_THAT(device_.changes, ElementsAre(0x10F)) << "nothing to delete";
    ExpectAll(
        {{"-n gateway replace fe80::1 dev eth0 table 5", 0, "route del default dev eth0 table 5\nrequest  0x10F"}});
}

TEST_F(Gateways, RefusedBeforeAnythingIsSent) {
    ExpectAll({{"gateway set 0.0.0.0 dev eth0", 2, "use \"gateway del\""}});
    ExpectStatus(2, {"gateway set :: dev eth0", "gateway set fe80::1", "gateway set 10.0.0.7/8 dev eth0",
                     "gateway replace 10.0.0.7", "gateway set 10.0.0.7 -4", "gateway set 10.0.0.7 table 2147483648",
                     "priority set eth0 10 eth0 20", "priority set eth0 2147483648", "priority set eth0",
                     "priority set eth0 1 eth1"});
    setenv("SSH_CONNECTION", "192.168.1.77 50000 192.168.1.20 22", 1);
    ExpectStatus(2, {"gateway set 192.168.1.7 dev eth0", "gateway del", "gateway del dev eth0 table 5",
                     "gateway replace 192.168.1.7 dev eth0"});
    EXPECT_THAT(device_.changes, ElementsAre());
    ExpectStatus(0, {"gateway set 10.0.0.7 dev eth1", "gateway del dev eth0 --force"});  // another link, or by force
}

TEST_F(Gateways, PrioritiesAreReadBackAndTheirRoutesLookedAt) {
    Prepare({"ip addr add 10.0.0.1/8 dev eth1", "ip route add default via 10.0.0.7 dev eth1 metric 20"});
    EXPECT_EQ(RunLine("priority set eth10 3 eth1 20").err,
              "note: the set of interfaces is fixed now until the daemon restarts\n");
    // "eth1" is where "eth10" begins, and that one comes first.
    ExpectAll({{"priority set eth1 5", 2, "the daemon would change eth10 instead"}});
    EXPECT_EQ(device_.changes.size(), 1U);
    device_.priorities = {2, {{"eth0", 10}, {"eth1", 20}}};
    device_.whenSet = "ip route del default dev eth1; ip route add default via 10.0.0.7 dev eth1 metric 5";
    const ToolRun run = RunLine("priority set eth1 5 eth0 10 eth3 30");
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(
        run.out,
        "eth1   20 -> 5          default route moved\n"
        "eth0   10 as before\n"
        "eth3   not taken: the set of interfaces is fixed by the first \"priority set\" until the daemon restarts\n");
    device_.whenSet.clear();
    EXPECT_THAT(RunLine("priority set eth1 7").out, HasSubstr("5 -> 7     its default route still has metric 5"));
    EXPECT_THAT(RunLine("-n priority set eth1 6 eth3 30").out,
                HasSubstr("eth1 6, eth3 30, 204 bytes\nruns     ip -4 route show dev eth0 default\n"
                          "runs     ip -4 route show dev eth1 default\nruns     ip -4 route del default dev eth1\n"
                          "runs     ip route add default via 10.0.0.7 dev eth1 metric 6\n"));
    device_.whenSet = "ip route del default dev eth1";
    ExpectStatus(5, {"priority set eth1 5"});  // the route is lost
    using tessel::ctl::Complete;
    EXPECT_THAT(Complete({"priority", "set", "eth1", "5", "eth"}), ElementsAre("eth0", "eth1", "eth2"));
    EXPECT_THAT(Complete({"priority", "set", "eth1", ""}), ElementsAre());
}

}  // namespace
