// Addresses and the MAC, read and changed: which lines are run, what happens when one of them fails, and the log.
#include "addr/address.h"

#include "core/exec.h"
#include "tessel/mac.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

// "10.0.0.1 2" has the scope 2, an address alone 0.
TNetIpAddr Entry(const std::string& text) {
    const std::size_t blank = text.find(' ');
    const TNetGateway address = Address(text.substr(0, blank).c_str());
    const u32 scope = blank != std::string::npos ? static_cast<u32>(std::stoul(text.substr(blank))) : 0;
    TNetIpAddr entry{scope, address.wSinFamily, 0, {}, address.wSinFamily == 10 ? 64U : 8U, 0, 0};
    memcpy(entry.abyAddr, address.abyAddr, sizeof(entry.abyAddr));
    return entry;
}

Call Get(u16 family, const char* name) {
    return {0x115, Named(TNetIpaddrGetReq{.wSinFamily = family, .achDevName = {}}, name),
            "ApidIpaddrGet: IpaddrGet error!"};
}

Call Show(const char* name, std::size_t bytes = 16) {
    return {0x11B, Padded(name, bytes), "apid_ipaddr_show_filter: api_ipaddr_show_filter error!"};
}

TEST(Address, IsReadThroughTheIpTool) {
    LoggedTools tools;
    tools.Answer("ip -4 addr show dev eth0", "inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0");
    tools.Answer("ip -6 addr show dev eth0", "inet6 fe80::1/64 scope link tentative dynamic");
    tools.Answer("ip -4 addr show dev half", "inet 10.1.2.3/8 scope global eth0\ninet 10.1.2.4 scope");
    tools.Answer("ip -6 addr show dev half", "inet6 2001:db8::1/64 global");
    tools.Answer("ip addr show dev eth0",
                 "2: eth0: <UP> mtu 1400 qdisc\n    link/ether 00:11:22:33:44:55 brd\n    inet6 fe80::1/64 scope "
                 "link\n    inet 10.1.2.3/8 scope global eth0\n");
    tools.Answer("ip addr show dev lo",
                 "mtu 65536 qdisc link/loopback 00:00:00:00:00:00 brd inet 127.0.0.1/8 scope host lo");
    tools.Fail({"ip -4 addr show dev eth9"});
    TNetIpaddrGetReply both{.nResult = 0, .tIfaceIp = {.dwNum = 2, .atIp = {Entry("10.1.2.3 4"), Entry("fe80::1 2")}}};
    TNetIpAddr& second = both.tIfaceIp.atIp[1];
    second.bTentative = second.bDynamic = 1;
    // What was read before the failure stays.
    const TNetIpaddrGetReply half{.nResult = -1, .tIfaceIp = {.dwNum = 1, .atIp = {Entry("10.1.2.3 4")}}};
    tools.Check({
        {"both", Get(11, "eth0"), std::string(Bytes(both)), "ip -4 addr show dev eth0; ip -6 addr show dev eth0",
         "GetIpaddrV4: GetIpaddrV4 cmd : $; inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0; GetIpaddrV6: "
         "GetIpaddrV6 cmd : $; read buf inet6 fe80::1/64 scope link tentative dynamic; it's tentative address, mark "
         "it; achScopeType = scope link tentative dynamic; it's ra address, ip fe80::1 "},
        {"no addresses", Get(2, "eth1"), 0, "ip -4 addr show dev eth1"},
        {"shown, an Ethernet interface", Show("eth0"), 0, "ip addr show dev eth0",
         "ipaddr_show_filter: $; ipaddr_show_info->mtu=1400; ipaddr_show_info->mac:30:30:3a:31:31:3a"},
        {"shown, no Ethernet address", Show("lo"), -1, "ip addr show dev lo",
         "ipaddr_show_filter: $; ipaddr_show_info->mtu=65536; ip ip addr show dev lo; mtu 65536 qdisc link/loopback "
         "00:00:00:00:00:00 brd inet 127.0.0.1/8 scope host lo"},
        {"shown, a tool that prints nothing", Show("eth5"), -1, "ip addr show dev eth5",
         "ipaddr_show_filter: $; don't find any information!"},
        {"shown, an option", Show("-V"), -1, ""},
        {"shown, a byte less", Show("eth0", 15), "", "", "apid_ipaddr_show_filter: the size is error:size=15"},
    });
    TesselDebugLevelSet(2);
    tools.Check({
        {"no interface: IPv6 is not asked", Get(11, "eth9"), -1, "ip -4 addr show dev eth9",
         "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!; IpaddrGet: GetIpaddrV4 error, pchIfaceName : eth9!"},
        {"no prefix", Get(2, "half"), std::string(Bytes(half)), "ip -4 addr show dev half",
         "GetIpaddrV4: FindStrMatchHead error!; FindStrMatchHead outbuf : inet 10.1.2.3/8 scope global eth0; inet "
         "10.1.2.4 scope!"},
        {"no scope", Get(10, "half"), -1, "ip -6 addr show dev half",
         "GetIpaddrV6: FindStrMatchHead error!; FindStrMatchHead outbuf : 2001:db8::1/64 global!"},
        {"unknown family", Get(3, "eth0"), -1, "", "IpaddrGet: the wSinFamily 3 is not supportted!"},
        {"an option", Get(2, "-V"), -1, "", "GetIpaddrV4: the text [-V] is invalid!"},
        {"a name without end", Get(2, "abcdefghijklmnop"), 0, "ip -4 addr show dev abcdefghijklmnop"},
    });
    TNetIfaceIp list{};
    EXPECT_EQ(IpaddrGetEx("eth0", 11, &list), 0);
    second.bTentative = 0;
    EXPECT_EQ(Bytes(list), Bytes(both.tIfaceIp)) << "unmarked";
    (void)tools.TakeLog();
    EXPECT_EQ(IpaddrGetEx("eth9", 11, &list), -1);
    EXPECT_THAT(tools.TakeLog(), testing::EndsWith("; IpaddrGetEx: GetIpaddrV4 error, pchIfaceName : eth9!"));
}

// A tool's output that ends somewhere in an address's line counts up to the line before, wherever that is.
TEST(Address, HalfALineIsNeitherAnErrorNorHalfANumber) {
    LoggedTools tools;
    const auto reply = [&](const Call& call) { return tools.Request(call.type, call.payload).value(); };
    const std::string first =
        "2: eth0: mtu 1500 \n    link/ether 00:11:22:33:44:55 brd\n    inet6 2001:db8::1/64 scope global \n    alias ";
    const std::string last = "    inet6 2001:db8::2/64 scope global tentative dynamic \n";
    for (std::size_t kept = 0; kept <= last.size(); ++kept) {
        const std::string filler(kToolOutputBytesMax - first.size() - 1 - kept, '.');
        const std::string output = first + filler + "\n" + last + "more\n";
        tools.Answer("ip -6 addr show dev eth0", output);
        tools.Answer("ip addr show dev eth0", output);
        const std::string expected = Number(0) + Number(kept < last.size() ? 1 : 2);
        EXPECT_EQ(reply(Get(10, "eth0")).substr(0, 8), expected) << kept;
        const std::string shown = reply(Show("eth0"));
        EXPECT_EQ(shown.substr(0, 4) + shown.substr(28, 4), expected) << kept;
    }
    tools.Answer("ip -6 addr show dev eth0", std::string(5000, 'x'));
    EXPECT_EQ(reply(Get(10, "eth0")), Bytes(TNetIpaddrGetReply{})) << "one endless line";
}

Call Add(const char* address, const char* name = "eth0") {
    return {0x101, Named(TNetIpaddrChangeReq{.achDevName = {}, .tIp = Entry(address)}, name),
            "ApidIpaddrAdd: IpaddrAdd error!"};
}

Call Del(const char* address, const char* name = "eth0") {
    return {0x103, Add(address, name).payload, "ApidIpaddrDel: IpaddrDel error!"};
}

Call Flush(u16 family, const char* name = "eth0") {
    return {0x104, Named(TNetIpaddrFlushReq{.wSinFamily = family, .achDevName = {}}, name),
            "ApidIpaddrFlush: IpaddrFlush error!; IpaddrFlush nErrid : -1"};
}

// As many bytes as asked for, or all.
Call Set(u16 family, const std::vector<const char*>& entries, const char* name = "eth0", u32 count = 0,
         std::size_t bytes = sizeof(TNetIpaddrSetReq)) {
    TNetIpaddrSetReq request{.wSinFamily = family, .achDevName = {}, .tIfaceIp = {}};
    request.tIfaceIp.dwNum = count != 0 ? count : static_cast<u32>(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i)
        request.tIfaceIp.atIp[i] = Entry(entries[i]);
    return {0x105, Named(request, name, bytes), "ApidIpaddrSet: IpaddrSet error!"};
}

Call MacSet(const char* name) {
    return {0x106, Named(TNetMacaddrSetReq{.achDevName = {}, .abyMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}}, name),
            "ApidMacaddrSet: MacaddrSet error!"};
}

Call MacGet(const char* name) {
    return {0x107, Padded(name, 16), "ApidMacaddrGet: MacaddrSet error!"};
}

TEST(AddressChange, OfOneAddressOrAFamily) {
    LoggedTools tools;
    tools.Check({
        {"add; the scope is not named, nor has to be one", Add("10.0.0.1 77777"), 0,
         "ip -4 addr add 10.0.0.1/8 dev eth0", "IpaddrAddV4: pchIfaceName : eth0; IpaddrAddV4 achCmdBuf: $"},
        {"add IPv6", Add("fd00::1"), 0, "ip -6 addr add fd00::1/64 dev eth0"},
        {"an unknown family succeeds", Add("none"), 0, "", "IpaddrAdd: the wSinFamily 7 is invalid!"},
        {"delete", Del("10.0.0.1"), 0, "ip -4 addr del 10.0.0.1/8 dev eth0"},
        {"delete IPv6", Del("fd00::1"), 0, "ip -6 addr del fd00::1/64 dev eth0",
         "IpaddrDelV6: pchIfaceName : eth0; IpaddrDelV6 achCmdBuf: $"},
        {"delete, an unknown family", Del("none"), 0, "", "IpaddrDel: the wSinFamily 7 is invalid!"},
        {"flush", Flush(2), 0, "ip -4 addr flush dev eth0",
         "IpaddrFlushV4: IpaddrFlushV4 achCmdBuf: $; ApidIpaddrFlush: IpaddrFlush nErrid : 0"},
        {"flush both", Flush(11), 0, "ip -4 addr flush dev eth0; ip -6 addr flush scope global permanent dev eth0"},
    });
    TesselDebugLevelSet(2);
    tools.Fail({"ip -4 addr add 10.0.0.9/8 dev eth0", "ip -6 addr del fd00::9/64 dev eth0",
                "ip -6 addr flush scope global permanent dev old", "ip -6 addr flush scope global permanent dev bad",
                "ip -6 addr flush scope global dev bad", "ip -4 addr flush dev bad"});
    tools.Check({
        {"add", Add("10.0.0.9"), -1, "ip -4 addr add 10.0.0.9/8 dev eth0", "#IpaddrAddV4"},
        {"delete", Del("fd00::9"), -1, "ip -6 addr del fd00::9/64 dev eth0", "#IpaddrDelV6"},
        {"flush by an older tool", Flush(10, "old"), 0,
         "ip -6 addr flush scope global permanent dev old; ip -6 addr flush scope global dev old"},
        {"that fails as well", Flush(10, "bad"), -1,
         "ip -6 addr flush scope global permanent dev bad; ip -6 addr flush scope global dev bad",
         "#IpaddrFlushV6; IpaddrFlushV6 achCmdBuf: ip ip -6 addr flush scope global dev bad ; #IpaddrFlushV6"},
        {"IPv6 stays when IPv4 fails", Flush(11, "bad"), -1, "ip -4 addr flush dev bad",
         "#IpaddrFlushV4; IpaddrFlush: IpaddrFlushV4 error, nRet = -1!"},
        {"flush without a name", Flush(2, ""), -1, "", "IpaddrFlushV4: the pchIfaceName is invalid!"},
        {"flush an unknown family", Flush(3), -1, "", "IpaddrFlush: IpaddrFlush wSinFamily 3 is invalid!"},
    });
    // "ifconfig -V" succeeds without setting anything.
    for (const char* name : {"", "eth0 x", "-V"}) {
        for (const Call& call : {Add("10.0.0.1", name), Del("fd00::1", name), Flush(2, name), Flush(10, name),
                                 Flush(11, name), Set(2, {"10.0.0.1"}, name), Set(10, {"fd00::1"}, name),
                                 Set(11, {"10.0.0.1"}, name), MacSet(name), MacGet(name)})
            tools.Check({{name, call, -1, ""}});
    }
}

std::string Added(const std::vector<std::string>& addresses) {
    std::string runs;
    for (const std::string& address : addresses)
        runs += "; ip -" + std::string(address.find(':') != std::string::npos ? "6" : "4") + " addr add " + address +
                " dev eth0";
    return runs;
}

TEST(AddressChange, SettingReplacesAndRestores) {
    LoggedTools tools(2);
    tools.Answer("ip -4 addr show dev eth0",
                 "inet 10.0.0.100/8 scope global eth0\ninet 10.0.0.101/8 scope global eth0");
    tools.Answer("ip -6 addr show dev eth0",
                 "inet6 fd00::64/64 scope global \ninet6 fe80::1/64 scope link \ninet6 fd00::65/64 scope global "
                 "dynamic \ninet6 fd00::66/64 scope global");
    tools.Fail({"ip -4 addr add 10.0.0.9/8 dev eth0", "ip -6 addr add fd00::9/64 dev eth0", "ip -4 addr show dev bad",
                "ip -6 addr show dev bad", "ip -4 addr flush dev bad"});
    const std::string flushed = "ip -4 addr show dev eth0; ip -4 addr flush dev eth0";
    const std::string deleted =
        "ip -6 addr show dev eth0; ip -6 addr del fd00::64/64 dev eth0; ip -6 addr del fd00::66/64 dev eth0";
    tools.Check({
        {"IPv4", Set(2, {"10.0.0.1", "10.0.0.2"}), 0, flushed + Added({"10.0.0.1/8", "10.0.0.2/8"})},
        {"the second of three fails: the old ones come back", Set(2, {"10.0.0.1", "10.0.0.9", "10.0.0.2"}), -1,
         flushed + Added({"10.0.0.1/8", "10.0.0.9/8", "10.0.0.100/8", "10.0.0.101/8"})},
        {"an IPv6 entry in an IPv4 list fails", Set(2, {"fd00::1"}), -1,
         flushed + Added({"10.0.0.100/8", "10.0.0.101/8"}), "IpaddrV4Set: IpaddrAddV4 error : -1!"},
        {"link-local and learnt ones stay, link-local ones are not added", Set(10, {"fd00::1", "fd00::2 2"}), 0,
         deleted + Added({"fd00::1/64"})},
        {"both: each to its family, IPv4 first", Set(11, {"fd00::1", "none", "10.0.0.1"}), 0,
         flushed + Added({"10.0.0.1/8"}) + "; " + deleted + Added({"fd00::1/64"})},
        {"both, and IPv4 fails: nothing of IPv6", Set(11, {"fd00::1", "10.0.0.9"}), -1,
         flushed + Added({"10.0.0.9/8", "10.0.0.100/8", "10.0.0.101/8"})},
        {"an unknown family", Set(3, {"10.0.0.1"}), -1, "", "IpaddrSet: the wSinFamily 3 is invalid!"},
        {"a failed flush stops it", Set(11, {"10.0.0.1", "fd00::1"}, "bad"), -1,
         "ip -4 addr show dev bad; ip -4 addr flush dev bad",
         "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!; IpaddrV4Set: IpaddrGet error : -1!; #IpaddrFlushV4; "
         "IpaddrV4Set: IpaddrFlush error : -1!"},
        {"a failed read does not", Set(10, {"fd00::1"}, "bad"), 0,
         "ip -6 addr show dev bad; ip -6 addr add fd00::1/64 dev bad",
         "GetIpaddrV6: ExecCmdAndGetOutput error!; IpaddrV6Set: IpaddrGet BackIpV4 error : -1!"},
    });
    TesselDebugLevelSet(5);
    EXPECT_EQ(tools.Status(Set(10, {})), 0);
    EXPECT_THAT(tools.TakeLog(),
                testing::AllOf(testing::StartsWith("IpaddrSet: pchIfaceName : eth0, wSinFamily : 10; "),
                               HasSubstr("; IpaddrV6Set: ****skip link addr****; ****skip ra addr****; "),
                               testing::EndsWith("; IpaddrSet: the IpaddrSet nRet : 0")));
    EXPECT_EQ(tools.Status(Set(2, {"fd00::1"})), -1);
    EXPECT_THAT(tools.TakeLog(), HasSubstr("; IpaddrAddV4: pchIfaceName : eth0; the ip sinfamiy is 10; "));
    (void)tools.TakeRuns();
    TesselDebugLevelSet(2);
    tools.Fail({"ip -4 addr add 10.0.0.100/8 dev eth0", "ip -6 addr add fd00::64/64 dev eth0",
                "ip -6 addr del fd00::64/64 dev eth0"});
    tools.Check({
        {"one that does not come back keeps no other from it", Set(2, {"10.0.0.9"}), -1,
         flushed + Added({"10.0.0.9/8", "10.0.0.100/8", "10.0.0.101/8"})},
        {"nor does an IPv6 one, nor one that cannot be deleted", Set(10, {"fd00::9"}), -1,
         deleted + Added({"fd00::9/64", "fd00::64/64", "fd00::66/64"}),
         "#IpaddrDelV6; IpaddrV6Set: IpaddrDelV6 del ipv6 error : -1! nIndex = 0; #IpaddrAddV6; IpaddrV6Set: "
         "IpaddrAddV6 error : -1!; #IpaddrAddV6"},
    });
}

TEST(AddressChange, AListThatWasCutShortChangesNothing) {
    LoggedTools tools;
    const std::vector<const char*> two = {"10.0.0.1", "10.0.0.2"};
    const std::vector<const char*> sixteen(16, "10.0.0.1");
    const std::string flushed = "ip -4 addr show dev eth0; ip -4 addr flush dev eth0";
    constexpr std::size_t kListAt = 22;  // bytes in front of the first entry
    constexpr std::size_t kTwoEntries = kListAt + std::size_t{2} * 36;
    for (std::size_t bytes = 0; bytes < kTwoEntries; ++bytes) {
        const std::string refusal = "ApidIpaddrSet: the size is error:size=" + std::to_string(bytes);
        tools.Check({{refusal, {0x105, Set(2, two, "eth0", 0, bytes).payload}, -1, "", refusal}});
    }
    const std::string all = flushed + Added(std::vector<std::string>(16, "10.0.0.1/8"));
    tools.Check({
        {"sixteen count, and one byte is missing", Set(2, sixteen, "eth0", 17, 597), -1, ""},
        {"nothing is missing", Set(2, two, "eth0", 0, kTwoEntries), 0, flushed + Added({"10.0.0.1/8", "10.0.0.2/8"})},
        {"nothing behind the sixteenth is taken", Set(2, sixteen, "eth0", 0xffffffff), 0, all},
        {"an empty list is a list", Set(2, {}, "eth0", 0, kListAt), 0, flushed},
    });
}

TEST(MacChange, IsSetAndRead) {
    LoggedTools tools;
    tools.Answer("ip link show dev eth0", "2: eth0: <UP>\n    link/ether 02:0a:00:Ff:10:5 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev first22", "    link/ether 22:00:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev later22", "    link/ether 02:22:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev lo", "link/loopback 00:00:00:00:00:00");
    tools.Fail({"ip link show dev eth9", "ifconfig busy hw ether 0:11:22:33:44:55"});
    const TNetMacaddrGetReply mac{.nResult = 0, .abyMac = {0x02, 0x0a, 0x00, 0xff, 0x10, 0x05}, .abyUnused = {}};
    tools.Check({
        {"set", MacSet("busy"), -1, "ifconfig busy hw ether 0:11:22:33:44:55",
         "MacaddrSet: pchIfaceName : busy; MacaddrSet achCmdBuf: $; #MacaddrSet"},
        {"get", MacGet("eth0"), std::string(Bytes(mac)), "ip link show dev eth0",
         "MacaddrGet: MacaddrGet cmd : $; mac : 02:0a:00:Ff:10:5; pchMac : 2; pchMac : a; pchMac : 0; pchMac : ff; "
         "pchMac : 10; pchMac : 5"},
        {"a first byte of 0x22 cannot be read", MacGet("first22"), -1, "ip link show dev first22",
         "MacaddrGet: MacaddrGet cmd : $; mac : 22:00:00:00:00:01; pchMac : 22; strtol error"},
        {"a later one can", MacGet("later22"), 0, "ip link show dev later22"},
    });
    TesselDebugLevelSet(2);
    tools.Check({
        {"set", MacSet("eth0"), 0, "ifconfig eth0 hw ether 0:11:22:33:44:55", ""},
        {"no Ethernet", MacGet("lo"), -1, "ip link show dev lo",
         "MacaddrGet: FindStrMatchHead error!; FindStrMatchHead : link/loopback 00:00:00:00:00:00"},
        {"no interface", MacGet("eth9"), -1, "ip link show dev eth9", "MacaddrGet: ExecCmdAndGetOutput error!"},
    });
}

}  // namespace
}  // namespace tessel::test
