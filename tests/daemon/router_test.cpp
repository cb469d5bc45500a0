// Router watch above an `ip` that is only noted: when it reports what, and the frame that asks for routers.
#include <linux/if_ether.h>

#include <mutex>
#include <thread>

#include "core/family.h"
#include "probe/router/router_solicitation.h"
#include "probe/router/router_watch.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

using namespace std::string_literals;

constexpr u32 kStart = 0x117;
constexpr u32 kStop = 0x118;

// The `ip` of every interface; a test changes its answers while workers run it.
class ScriptedIp {
  public:
    void Set(const std::string& addresses, const std::string& gateway) {
        const std::lock_guard guard(lock_);
        addresses_ = addresses;
        gateway_ = gateway;
        reads_ = 0;
    }
    // Waits until the addresses have been read so many times since they were set.
    bool AwaitReads(int count) {
        return Eventually([&] {
            const std::lock_guard guard(lock_);
            return reads_ >= count;
        });
    }
    ToolAnswer Answer(const std::string& line) {
        const std::lock_guard guard(lock_);
        if (line.find("scope link") != std::string::npos) return {};
        if (line.find(" route ") != std::string::npos)
            return {gateway_.empty() ? "" : "default via " + gateway_ + " dev"};
        ++reads_;
        return {addresses_, addresses_ == "fails" ? 1 : 0};
    }

  private:
    std::mutex lock_;
    std::string addresses_;
    std::string gateway_;
    int reads_ = 0;
};

std::string Shown(const char* address, const char* flags = "global dynamic mngtmpaddr") {
    return std::string("    inet6 ") + address + "/64 scope " + flags + " \n       valid_lft 86392sec\n";
}

std::string StartOf(const char* name, i32 user, i32 pid) {
    return Padded(name, 16) + Number(static_cast<u32>(user)) + Number(static_cast<u32>(pid));
}

class RouterWatching : public testing::Test {
  protected:
    RouterWatching() {
        if (g_ptDaeRouterNotifyInfo == nullptr) DaemonRouterNotifyInit();
        g_routerCycle = std::chrono::milliseconds(5);
        AnswerTools([this](const std::string& line) { return ip.Answer(line); });
    }
    ~RouterWatching() override {
        for (const char* name : {"eth0", "eth1", "eth2", "eth3", "eth4", "eth5"})
            EXPECT_EQ(RouterAdvertiseStop(name), 0);
    }
    NotedTools tools;
    LoggedLines log{4};
    ScriptedIp ip;
};

// "a1 a2? via GATEWAY": addresses, with '?' while they are tentative.
std::string TextOf(const TNetRouterNotify& report) {
    std::string text;
    for (u32 i = 0; i < report.tIfaceIp.dwNum; ++i) {
        const TNetIpAddr& entry = report.tIfaceIp.atIp[i];
        text += AddressText(10, &entry.abyAddr).text + std::string(entry.bTentative != 0 ? "? " : " ");
    }
    return text + "via " + AddressText(report.tGateway).text;
}

TEST_F(RouterWatching, ReportsWhatChanges) {
    const std::string a = Shown("2001:db8::a");
    const std::string b = Shown("2001:db8::b");
    const std::string others = Shown("fe80::1", "link") + Shown("2001:db8::1", "global");
    // Without a text nothing is reported; a pid of 0 starts nothing.
    const struct {
        const char* description;
        std::string addresses;
        const char* gateway;
        i32 startOf;
        std::string expected;
    } rows[] = {
        {"no address", others, "fe80::9", 1, ""},
        {"a repeated start reports that, too", others, "fe80::9", 1, "via fe80::9"},
        {"addresses without a gateway", others + a, "", 0, "2001:db8::a via ::"},
        {"which is no gateway again", others + a, "", 0, ""},
        {"nor for a start", others + a, "", 1, ""},
        {"until there is one", others + a, "fe80::9", 0, "2001:db8::a via fe80::9"},
        {"another gateway", a, "fe80::8", 0, ""},
        {"none", a, "", 0, ""},
        {"another address as well", a + b, "fe80::8", 0, "2001:db8::a 2001:db8::b via fe80::8"},
        {"in another order", b + a, "fe80::8", 0, ""},
        {"a failing tool", "fails", "fe80::8", 0, ""},
        {"another process", b + a, "fe80::7", 2, "2001:db8::b 2001:db8::a via fe80::7"},
        {"the same one again", a + b, "fe80::7", 2, "2001:db8::a 2001:db8::b via fe80::7"},
        {"an address that is not usable yet", Shown("2001:db8::c", "global tentative dynamic"), "fe80::7", 0,
         "2001:db8::c? via fe80::7"},
        {"and is now", Shown("2001:db8::c"), "fe80::7", 0, "2001:db8::c via fe80::7"},
        {"withdrawn", "", "fe80::7", 0, "via fe80::7"},
    };
    Listener first("ipc_router_notify_eth0_7_1");
    Listener second("ipc_router_notify_eth0_7_2");
    Listener* current = &first;
    for (const auto& row : rows) {
        ip.Set(row.addresses, row.gateway);
        if (row.startOf != 0) {
            EXPECT_EQ(tools.Status(kStart, StartOf("eth0", 7 + (current == &second), row.startOf)), 0);
        }
        if (row.startOf == 2) current = &second;
        if (row.expected.empty()) {
            EXPECT_TRUE(ip.AwaitReads(4)) << row.description;
            EXPECT_EQ(current->Next(0), -1) << row.description;
            continue;
        }
        TNetRouterNotify report{};
        EXPECT_EQ(current->Next(), 0) << row.description;
        EXPECT_EQ(tessel_event_router(&current->event, &report), TESSEL_OK) << row.description;
        EXPECT_EQ(TextOf(report), row.expected) << row.description;
    }
    EXPECT_EQ(tools.Status(kStop, Padded("eth0", 16)), 0);
    ip.Set(a, "fe80::7");
    EXPECT_EQ(first.Next(100), -1);
    EXPECT_EQ(second.Next(0), -1);
    EXPECT_THAT(Joined(log.Take()), testing::HasSubstr("RouterNotifyThread: the RouterNotifyThread 7 quit!"));
}

TEST_F(RouterWatching, ReportByteForByteAndEachInterfaceForItself) {
    ip.Set(Shown("2001:db8::a"), "fe80::9");
    Listener zero("ipc_router_notify_eth0_-1_1");
    Listener one("ipc_router_notify_eth1_7_1");
    EXPECT_EQ(tools.Status(kStart, StartOf("eth0", -1, 1)), 0);
    EXPECT_EQ(zero.Next(), 0);
    const std::string entry = Number(4) + "\x0a\0\0\0\x20\x01\x0d\xb8"s + std::string(11, '\0') + "\x0a"s + Number(64) +
                              Number(0) + Number(1);
    EXPECT_EQ(
        std::string(reinterpret_cast<const char*>(zero.event.payload), zero.event.size),
        Padded("eth0", 16) + Number(1) + Padded(entry, 576) + "\x0a\0\0\0\xfe\x80"s + std::string(13, '\0') + "\x09");
    EXPECT_EQ(tools.Status(kStart, StartOf("eth1", 7, 1)), 0);
    EXPECT_EQ(one.Next(), 0);
    // Each gets the report that it asked for, although the other one's comes in between.
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(tools.Status(kStart, StartOf("eth0", -1, 1)), 0);
        EXPECT_EQ(tools.Status(kStart, StartOf("eth1", 7, 1)), 0);
        EXPECT_EQ(zero.Next(), 0);
        EXPECT_EQ(one.Next(), 0);
    }
    EXPECT_EQ(zero.Next(50), -1);
    EXPECT_EQ(one.Next(0), -1);
}

TEST_F(RouterWatching, FiveInterfacesAtATime) {
    for (const char* name : {"eth0", "eth1", "eth2", "eth3", "eth4"})
        EXPECT_EQ(tools.Status(kStart, StartOf(name, 1, 1)), 0);
    (void)log.Take();
    EXPECT_EQ(tools.Status(kStart, StartOf("eth5", 1, 1)), -1);
    EXPECT_EQ(Joined(log.Take()),
              "ApidRouterAdvertiseStart: ApidRouterAdvertiseStart devname : eth5, nUserId : 1, nPid : 1; "
              "RouterAdvertiseStart: pchIfaceName : eth5; RouterAdvertiseStart: the module may be not inited or the "
              "iface has up to maximum !; ApidRouterAdvertiseStart: RouterAdvertiseStart error!; "
              "ApidRouterAdvertiseStart: ApidRouterAdvertiseStart, nErrid = -1");
    EXPECT_EQ(tools.Status(kStop, Padded("eth5", 16)), 0);
    EXPECT_EQ(Joined(log.Take()),
              "ApidRouterAdvertiseStop: ApidRouterAdvertiseStop devname : eth5; RouterAdvertiseStop: the eth5 router "
              "advertise has stopped!; ApidRouterAdvertiseStop: ApidRouterAdvertiseStop, nErrid = 0");
    for (const char* name : {"", "-x", "a b", "../x", "sixteen-letters-"})
        EXPECT_EQ(tools.Status(kStart, StartOf(name, 1, 1)), -1) << name;
    EXPECT_EQ(tools.Status(kStop, Padded("eth2", 16)), 0);
    EXPECT_EQ(tools.Status(kStart, StartOf("eth5", 1, 1)), 0);
}

TEST_F(RouterWatching, OneSolicitationGoesOutPerWatch) {
    const FarLink link("far0", ETH_P_IPV6);
    const std::string linkLocal = "    inet6 fe80::211:22ff:fe33:4455/64 scope link \n";
    std::string shown = linkLocal;
    const char* mac = "22:11:22:33:44:55";
    AnswerTools([&](const std::string& line) -> ToolAnswer {
        if (line == "ip -6 addr show dev eth0 scope link") return {shown};
        if (line == "ip link show dev eth0") return {std::string("    link/ether ") + mac + " brd ff\n"};
        return {};
    });
    SendRsPacket("eth0");
    mac = "00:11:22:33:44:55";
    shown = "";
    SendRsPacket("eth0");
    EXPECT_EQ(Joined(log.Take()),
              "SendRsPacket: eth0 link addr is fe80::211:22ff:fe33:4455; MacaddrGet: strtol error; "
              "SendRsPacket: get mac fail; GetLinkAddr: FindStrMatchHead error!; "
              "SendRsPacket: get link addr fail");
    shown = linkLocal;
    EXPECT_EQ(tools.Status(kStart, StartOf("eth0", 1, 1)), 0);
    EXPECT_EQ(tools.Status(kStart, StartOf("eth0", 1, 1)), 0);
    const std::string expected =
        "\x33\x33\0\0\0\x02\0\x11\x22\x33\x44\x55\x86\xdd"s                              // Ethernet
        "\x60\0\0\0\0\x08\x3a\xff\xfe\x80\0\0\0\0\0\0\x02\x11\x22\xff\xfe\x33\x44\x55"s  // IPv6: source
        "\xff\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\x02\x85\0\x15\x9e\0\0\0\0"s;                 // all routers
    std::string frame;
    // The host sends its own, from other addresses.
    while (!(frame = link.Next()).empty() && frame.substr(6, 6) != expected.substr(6, 6)) {
    }
    EXPECT_EQ(frame, expected);
    while (!(frame = link.Next(200)).empty())
        EXPECT_NE(frame.substr(6, 6), expected.substr(6, 6));
}

}  // namespace
}  // namespace tessel::test
