// Router watch above an `ip` that is only noted: when it reports what, and the frame that asks for routers.
#include <linux/if_ether.h>

#include <mutex>

#include "core/family.h"
#include "probe/router/router_solicitation.h"
#include "probe/router/router_watch.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr char kA[] = "    inet6 2001:db8::a/64 scope global dynamic mngtmpaddr \n";
const std::string kB = "    inet6 2001:db8::b/64 scope global dynamic \n";
const std::string kOthers = "    inet6 fe80::1/64 scope link \n    inet6 2001:db8::1/64 scope global \n";

class RouterWatching : public testing::Test {
  protected:
    RouterWatching() {
        if (g_ptDaeRouterNotifyInfo == nullptr) DaemonRouterNotifyInit();
        g_routerCycle = 5ms;
        AnswerTools([this](const std::string& line) -> ToolAnswer {
            const std::lock_guard guard(lock);
            if (line.find("link") != std::string::npos)
                return {line.find("addr") != std::string::npos ? linkAddress : mac};
            if (line.find(" route ") != std::string::npos) return {gateway};
            ++reads;
            return {addresses, addresses == "fails" ? 1 : 0};
        });
    }
    ~RouterWatching() override {
        for (const char* name : {"eth0", "eth1", "eth2", "eth3", "eth4", "eth5"})
            Stop(name);
    }
    void Show(const std::string& shown, const char* router) {
        const std::lock_guard guard(lock);
        addresses = shown;
        gateway = router[0] != '\0' ? std::string("default via ") + router + " dev eth0" : "";
        reads = 0;
    }
    i32 Start(const char* name, u32 pid = 1) {
        return tools.Status(0x117, Padded(name, 16) + Number(7) + Number(pid));
    }
    void Stop(const char* name) {
        EXPECT_EQ(tools.Status(0x118, Padded(name, 16)), 0);
    }
    LoggedTools tools{4};
    std::mutex lock;  // held for what follows, which workers read
    std::string linkAddress, mac, addresses, gateway;
    int reads = 0;
};

// "A B? via GATEWAY": addresses, with '?' while they are tentative; empty without a report.
std::string Next(Listener& listener, int timeoutMs) {
    TNetRouterNotify report{};
    if (listener.Next(timeoutMs) != 0 || tessel_event_router(&listener.event, &report) != TESSEL_OK) return "";
    std::string text;
    for (const TNetIpAddr& entry : std::span(report.tIfaceIp.atIp, report.tIfaceIp.dwNum))
        text += AddressText(10, &entry.abyAddr).text + std::string(entry.bTentative != 0 ? "? " : " ");
    return text + "via " + AddressText(report.tGateway).text;
}

TEST_F(RouterWatching, ReportsWhatChanges) {
    const std::tuple<const char*, std::string, const char*, u32, const char*> rows[] = {
        // addresses, gateway, pid of a start
        {"no address", kOthers, "fe80::9", 1, ""},
        {"a repeated start reports that, too", kOthers, "fe80::9", 1, "via fe80::9"},
        {"addresses without a gateway", kOthers + kA, "", 0, "2001:db8::a via ::"},
        {"which is no gateway again", kOthers + kA, "", 0, ""},
        {"until there is one", kOthers + kA, "fe80::9", 0, "2001:db8::a via fe80::9"},
        {"none, for a start", kA, "", 1, ""},
        {"until there is one again", kA, "fe80::9", 0, "2001:db8::a via fe80::9"},
        {"another gateway, or none", kA, "", 0, ""},
        {"another address as well", kA + kB, "fe80::8", 0, "2001:db8::a 2001:db8::b via fe80::8"},
        {"in another order", kB + kA, "fe80::8", 0, ""},
        {"a failing tool", "fails", "fe80::8", 0, ""},
        {"another process", kB + kA, "fe80::7", 2, "2001:db8::b 2001:db8::a via fe80::7"},
        {"not usable yet", "    inet6 2001:db8::c/64 scope global tentative dynamic \n", "fe80::7", 0,
         "2001:db8::c? via fe80::7"},
        {"but now", "    inet6 2001:db8::c/64 scope global dynamic \n", "fe80::7", 0, "2001:db8::c via fe80::7"},
        {"withdrawn", "", "fe80::7", 0, "via fe80::7"},
    };
    Listener first("ipc_router_notify_eth0_7_1");
    Listener second("ipc_router_notify_eth0_7_2");
    Listener* current = &first;
    for (const auto& [description, shown, router, pid, expected] : rows) {
        Show(shown, router);
        EXPECT_TRUE(pid == 0 || Start("eth0", pid) == 0);
        if (pid == 2) current = &second;
        EXPECT_TRUE(expected[0] != '\0' || Eventually([&] { return std::lock_guard(lock), reads >= 4; }));
        EXPECT_EQ(Next(*current, expected[0] != '\0' ? 5000 : 0), expected) << description;
    }
    const std::string expected =
        Padded("eth0", 16) + std::string(580, '\0') + "\x0a\0\0\0\xfe\x80"s + std::string(13, '\0');
    EXPECT_EQ(std::string(second.event.payload, second.event.payload + 616), expected + '\x07');
    Stop("eth0");
    Show(kA, "fe80::7");
    EXPECT_EQ(Next(second, 100), "");
    EXPECT_EQ(tools.TakeLines().back(), "ApidRouterAdvertiseStop: ApidRouterAdvertiseStop, nErrid = 0");
}

TEST_F(RouterWatching, InterfacesForThemselvesAndFiveAtATime) {
    Listener zero("ipc_router_notify_eth0_7_1");
    Listener one("ipc_router_notify_eth1_7_1");
    Show("", "fe80::9");
    for (const char* name : {"eth0", "eth1", "eth2", "eth3", "eth4"})
        EXPECT_EQ(Start(name), 0);
    for (int round = 0; round < 20; ++round) {  // a report for each, although the other one's comes in between
        EXPECT_EQ(Start("eth0") + Start("eth1"), 0);
        EXPECT_EQ(Next(zero, 5000) + Next(one, 5000), "via fe80::9via fe80::9");
    }
    EXPECT_EQ(Next(zero, 50) + Next(one, 0), "");
    for (const char* name : {"", "-x", "sixteen-letters-", "eth5"})
        EXPECT_EQ(Start(name), -1) << name;
    EXPECT_THAT(Joined(tools.TakeLines()),
                testing::EndsWith("RouterAdvertiseStart: the module may be not inited or the iface has up to maximum "
                                  "!; ApidRouterAdvertiseStart: RouterAdvertiseStart error!; ApidRouterAdvertiseStart: "
                                  "ApidRouterAdvertiseStart, nErrid = -1"));
    Stop("eth5");
    EXPECT_THAT(Joined(tools.TakeLines()), HasSubstr("the eth5 router advertise has stopped!"));
    Stop("eth2");
    EXPECT_EQ(Start("eth5"), 0);
}

TEST_F(RouterWatching, OneSolicitationGoesOutPerWatch) {
    const FarLink link("far0", ETH_P_IPV6);
    SendRsPacket("eth0");
    linkAddress = "    inet6 fe80::211:22ff:fe33:4455/64 scope link \n";
    mac = "    link/ether 22:11:22:33:44:55 brd ff\n";
    SendRsPacket("eth0");
    EXPECT_EQ(Joined(tools.TakeLines()),
              "GetLinkAddr: FindStrMatchHead error!; SendRsPacket: get link addr fail; SendRsPacket: eth0 link addr is "
              "fe80::211:22ff:fe33:4455; MacaddrGet: strtol error; SendRsPacket: get mac fail");
    TesselDebugLevelSet(5);
    TNetGateway none{};
    EXPECT_EQ(GetRaGateWayV6(nullptr, &none), -1);
    EXPECT_EQ(tools.TakeLines().at(0), "GetRaGateWayV6: GetGateWayV6 cmd : ip ip -6 route show default");
    mac = "    link/ether 00:11:22:33:44:55 brd ff\n";
    EXPECT_EQ(Start("eth0") + Start("eth0"), 0);
    const std::string own = "\0\x11\x22\x33\x44\x55"s;
    std::string frames;  // the kernel sends its own, from the real address
    for (std::string frame; !(frame = link.Next(500)).empty();)
        frames += frame.substr(6, 6) == own || frame.substr(6, 1) == "\x22" ? frame : "";
    EXPECT_EQ(frames, "\x33\x33\0\0\0\x02"s + own +
                          "\x86\xdd\x60\0\0\0\0\x08\x3a\xff"                                 // Ethernet, IPv6
                          "\xfe\x80\0\0\0\0\0\0\x02\x11\x22\xff\xfe\x33\x44\x55"             // from
                          "\xff\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\x02\x85\0\x15\x9e\0\0\0\0"s);  // to, and the message
}

}  // namespace
}  // namespace tessel::test
