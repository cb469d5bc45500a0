// Reading addresses: the lines that are run, the lists that come back, and the log.
#include "addr/address.h"

#include "core/exec.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

Call Get(u16 family, const char* name) {
    return {0x115, Named(TNetIpaddrGetReq{.wSinFamily = family, .achDevName = {}}, name)};
}

Call Show(const char* name) {
    return {0x11B, Padded(name, 16)};
}

template <typename Reply>
Reply Read(NotedTools& tools, const Call& call) {
    Reply reply{};
    reply.nResult = -2;
    const auto bytes = tools.Request(call.type, call.payload);
    if (bytes && bytes->size() == sizeof(reply)) memcpy(&reply, bytes->data(), sizeof(reply));
    return reply;
}

TEST(Address, IsReadThroughTheIpTool) {
    LoggedTools tools;
    tools.Answer("ip -4 addr show dev eth0", "inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0");
    tools.Answer("ip -6 addr show dev eth0", "inet6 fe80::1/64 scope link tentative dynamic");
    tools.Answer("ip -4 addr show dev half", "inet 10.1.2.3/8 scope global eth0\ninet 10.1.2.4 scope");
    tools.Answer("ip -6 addr show dev half", "inet6 2001:db8::1/64 global");
    tools.Fail({"ip -4 addr show dev eth9", "ip -6 addr show dev eth9"});
    TNetIpaddrGetReply both{};
    both.tIfaceIp.dwNum = 2;
    TNetIpAddr& first = both.tIfaceIp.atIp[0];
    first.dwScope = 4;
    first.wSinFamily = 2;
    memcpy(first.abyAddr, Address("10.1.2.3").abyAddr, 4);
    first.dwPrefixLen = 8;
    TNetIpAddr& second = both.tIfaceIp.atIp[1];
    second.dwScope = 2;
    second.wSinFamily = 10;
    memcpy(second.abyAddr, Address("fe80::1").abyAddr, 16);
    second.dwPrefixLen = 64;
    second.bTentative = second.bDynamic = 1;
    TNetIpaddrGetReply half{};  // what was read before the failure stays
    half.nResult = -1;
    half.tIfaceIp.dwNum = 1;
    half.tIfaceIp.atIp[0] = first;
    tools.Check({
        {"IPv4", Get(2, "eth0"), 0, "ip -4 addr show dev eth0"},
        {"IPv6", Get(10, "eth0"), 0, "ip -6 addr show dev eth0"},
        {"both", Get(11, "eth0"), std::string(Bytes(both)), "ip -4 addr show dev eth0; ip -6 addr show dev eth0",
         "GetIpaddrV4: GetIpaddrV4 cmd : $; inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0; GetIpaddrV6: "
         "GetIpaddrV6 cmd : $; read buf inet6 fe80::1/64 scope link tentative dynamic; it's tentative address, mark "
         "it; achScopeType = scope link tentative dynamic; it's ra address, ip fe80::1 "},
        {"no addresses", Get(2, "eth1"), 0, "ip -4 addr show dev eth1"},
    });
    TesselDebugLevelSet(2);
    tools.Check({
        {"no interface: IPv6 is not asked", Get(11, "eth9"), -1, "ip -4 addr show dev eth9",
         "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!; IpaddrGet: GetIpaddrV4 error, pchIfaceName : eth9!; "
         "ApidIpaddrGet: IpaddrGet error!"},
        {"no interface, IPv6", Get(10, "eth9"), -1, "ip -6 addr show dev eth9",
         "GetIpaddrV6: ExecCmdAndGetOutput error!; ApidIpaddrGet: IpaddrGet error!"},
        {"no prefix", Get(2, "half"), std::string(Bytes(half)), "ip -4 addr show dev half",
         "GetIpaddrV4: FindStrMatchHead error!; FindStrMatchHead outbuf : inet 10.1.2.3/8 scope global eth0; inet "
         "10.1.2.4 scope!; ApidIpaddrGet: IpaddrGet error!"},
        {"no scope", Get(10, "half"), -1, "ip -6 addr show dev half",
         "GetIpaddrV6: FindStrMatchHead error!; FindStrMatchHead outbuf : 2001:db8::1/64 global!; ApidIpaddrGet: "
         "IpaddrGet error!"},
        {"unknown family", Get(3, "eth0"), -1, "",
         "IpaddrGet: the wSinFamily 3 is not supportted!; ApidIpaddrGet: IpaddrGet error!"},
        {"an option", Get(2, "-V"), -1, "", "GetIpaddrV4: the text [-V] is invalid!; ApidIpaddrGet: IpaddrGet error!"},
        {"an option, IPv6", Get(10, "-V"), -1, ""},
        {"a name without end", Get(2, "abcdefghijklmnop"), 0, "ip -4 addr show dev abcdefghijklmnop"},
    });
    TNetIfaceIp list{};
    EXPECT_EQ(IpaddrGetEx("eth0", 11, &list), 0);
    second.bTentative = 0;
    EXPECT_EQ(Bytes(list), Bytes(both.tIfaceIp)) << "unmarked";
    (void)tools.TakeLog();
    EXPECT_EQ(GetIpaddrV4(nullptr, &list), -1);
    EXPECT_EQ(GetIpaddrV6("eth0", nullptr, 0), -1);
    EXPECT_EQ(IpaddrGetEx("eth9", 11, &list), -1);
    EXPECT_EQ(
        tools.TakeLog(),
        "GetIpaddrV4: pchIfaceName or ptNetIfaceIp is NULL!; GetIpaddrV6: pchIfaceName or ptNetIfaceIp is NULL!; "
        "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!; IpaddrGetEx: GetIpaddrV4 error, pchIfaceName : eth9!");
}

TEST(Address, IsShownAsText) {
    LoggedTools tools;
    tools.Answer("ip addr show dev eth0",
                 "2: eth0: <UP> mtu 1400 qdisc\n    link/ether 00:11:22:33:44:55 brd\n    inet6 fe80::1/64 scope "
                 "link\n    inet 10.1.2.3/8 scope global eth0\n");
    tools.Answer("ip addr show dev lo",
                 "mtu 65536 qdisc link/loopback 00:00:00:00:00:00 brd inet 127.0.0.1/8 scope host lo");
    tools.Fail({"ip addr show dev bad"});
    tools.Check({
        {"an Ethernet interface", Show("eth0"), 0, "ip addr show dev eth0",
         "ipaddr_show_filter: $; ipaddr_show_info->mtu=1400; ipaddr_show_info->mac:30:30:3a:31:31:3a"},
        {"no Ethernet address", Show("lo"), -1, "ip addr show dev lo",
         "ipaddr_show_filter: $; ipaddr_show_info->mtu=65536; ip ip addr show dev lo; mtu 65536 qdisc link/loopback "
         "00:00:00:00:00:00 brd inet 127.0.0.1/8 scope host lo; apid_ipaddr_show_filter: api_ipaddr_show_filter "
         "error!"},
        {"no interface", Show("bad"), -1, "ip addr show dev bad"},
        {"a tool that prints nothing", Show("eth5"), -1, "ip addr show dev eth5",
         "ipaddr_show_filter: $; don't find any information!; apid_ipaddr_show_filter: api_ipaddr_show_filter error!"},
        {"an option", Show("-V"), -1, ""},
        {"a byte less",
         {0x11B, Padded("eth0", 16).substr(1)},
         "",
         "",
         "apid_ipaddr_show_filter: the size is error:size=15"},
        {"a byte more", {0x11B, Padded("eth0", 16) + "x"}, "", ""},
    });
}

// A tool's output that ends somewhere in an address's line counts up to the line before, wherever that is.
TEST(Address, HalfALineIsNeitherAnErrorNorHalfANumber) {
    LoggedTools tools;
    const std::string first =
        "2: eth0: mtu 1500 \n    link/ether 00:11:22:33:44:55 brd\n    inet6 2001:db8::1/64 scope global \n    alias ";
    const std::string last = "    inet6 2001:db8::2/64 scope global tentative dynamic \n";
    for (std::size_t kept = 0; kept <= last.size(); ++kept) {
        const std::string filler(kToolOutputBytesMax - first.size() - 1 - kept, '.');
        const std::string output = first + filler + "\n" + last + "more\n";
        tools.Answer("ip -6 addr show dev eth0", output);
        tools.Answer("ip addr show dev eth0", output);
        const u32 expected = kept < last.size() ? 1 : 2;
        const auto list = Read<TNetIpaddrGetReply>(tools, Get(10, "eth0"));
        EXPECT_EQ(list.nResult, 0) << kept;
        EXPECT_EQ(list.tIfaceIp.dwNum, expected) << kept;
        const auto info = Read<TNetIpaddrShowReply>(tools, Show("eth0"));
        EXPECT_EQ(info.nResult, 0) << kept;
        EXPECT_EQ(info.tInfo.num, expected) << kept;
    }
    tools.Answer("ip -6 addr show dev eth0", std::string(5000, 'x'));
    EXPECT_EQ(Read<TNetIpaddrGetReply>(tools, Get(10, "eth0")).tIfaceIp.dwNum, 0U) << "one endless line";
}

}  // namespace
}  // namespace tessel::test
