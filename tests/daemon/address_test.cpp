// Reading addresses: the lines that are run, the lists that come back, and the log.
#include "addr/address.h"

#include <cstring>

#include "core/exec.h"
#include "tests/support/conversation.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr u32 kGet = 0x115;
constexpr u32 kShow = 0x11B;

std::string Of(u16 family, const char* interfaceName) {
    TNetIpaddrGetReq request{.wSinFamily = family, .achDevName = {}};
    strncpy(request.achDevName, interfaceName, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

template <typename Reply>
Reply Read(NotedTools& tools, u32 type, const std::string& request) {
    Reply reply{};
    reply.nResult = -2;
    const auto bytes = tools.Request(type, request);
    if (bytes && bytes->size() == sizeof(reply)) memcpy(&reply, bytes->data(), sizeof(reply));
    return reply;
}

TEST(Address, IsReadThroughTheIpTool) {
    NotedTools tools;
    tools.Answer("ip -4 addr show dev eth0", "    inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0\n");
    tools.Answer("ip -6 addr show dev eth0", "    inet6 fe80::1/64 scope link tentative\n");
    tools.Answer("ip -4 addr show dev eth9", "Device \"eth9\" does not exist.\n", 1);
    tools.Answer("ip -4 addr show dev half", "    inet 10.1.2.3/8 scope global eth0\n    inet 10.1.2.4 scope\n");
    const Transcript rows[] = {
        {"IPv4", kGet, Of(2, "eth0"), {"ip -4 addr show dev eth0"}, 0},
        {"IPv6", kGet, Of(10, "eth0"), {"ip -6 addr show dev eth0"}, 0},
        {"both", kGet, Of(11, "eth0"), {"ip -4 addr show dev eth0", "ip -6 addr show dev eth0"}, 0},
        {"no addresses", kGet, Of(2, "eth1"), {"ip -4 addr show dev eth1"}, 0},
        {"no interface: IPv6 is not asked", kGet, Of(11, "eth9"), {"ip -4 addr show dev eth9"}, -1},
        {"unreadable", kGet, Of(2, "half"), {"ip -4 addr show dev half"}, -1},
        {"unknown family", kGet, Of(3, "eth0"), {}, -1},
        {"two words in the name", kGet, Of(2, "eth0 up"), {}, -1},
        {"an option", kGet, Of(2, "-V"), {}, -1},
        {"no name", kGet, Of(2, ""), {}, -1},
        {"a name without end", kGet, Of(2, "abcdefghijklmnop"), {"ip -4 addr show dev abcdefghijklmnop"}, 0},
        {"a request cut short reads as zero", kGet, Of(2, "eth0").substr(0, 2), {}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);

    TNetIpaddrGetReply expected{};
    const TNetIpAddr first = {.dwScope = 4,
                              .wSinFamily = 2,
                              .wReserved = 0,
                              .abyAddr = {10, 1, 2, 3},
                              .dwPrefixLen = 8,
                              .bTentative = 0,
                              .bDynamic = 0};
    expected.tIfaceIp.dwNum = 2;
    expected.tIfaceIp.atIp[0] = first;
    expected.tIfaceIp.atIp[1] = {.dwScope = 2,
                                 .wSinFamily = 10,
                                 .wReserved = 0,
                                 .abyAddr = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                                 .dwPrefixLen = 64,
                                 .bTentative = 1,
                                 .bDynamic = 0};
    EXPECT_EQ(*tools.Request(kGet, Of(11, "eth0")), Bytes(expected));
    TNetIfaceIp unmarked{};
    EXPECT_EQ(IpaddrGetEx("eth0", 11, &unmarked), 0);
    expected.tIfaceIp.atIp[1].bTentative = 0;
    EXPECT_EQ(Bytes(unmarked), Bytes(expected.tIfaceIp));

    expected = {};
    expected.nResult = -1;
    expected.tIfaceIp.dwNum = 1;
    expected.tIfaceIp.atIp[0] = first;
    EXPECT_EQ(*tools.Request(kGet, Of(2, "half")), Bytes(expected)) << "what was read before the failure stays";
}

TEST(Address, IsShownAsText) {
    NotedTools tools;
    tools.Answer("ip addr show dev eth0",
                 "2: eth0: <UP> mtu 1400 qdisc\n    link/ether 00:11:22:33:44:55 brd\n    inet6 fe80::1/64 scope "
                 "link\n    inet 10.1.2.3/8 scope global eth0\n");
    tools.Answer(
        "ip addr show dev lo",
        "1: lo: <UP> mtu 65536 qdisc\n    link/loopback 00:00:00:00:00:00 brd\n    inet 127.0.0.1/8 scope host lo\n");
    tools.Answer("ip addr show dev bad", "Device \"bad\" does not exist.\n", 1);
    const Transcript rows[] = {
        {"an Ethernet interface", kShow, Name("eth0"), {"ip addr show dev eth0"}, 0},
        {"no Ethernet address", kShow, Name("lo"), {"ip addr show dev lo"}, -1},
        {"no interface", kShow, Name("bad"), {"ip addr show dev bad"}, -1},
        {"a tool that prints nothing", kShow, Name("eth5"), {"ip addr show dev eth5"}, -1},
        {"no name", kShow, Name(""), {}, -1},
        {"two words", kShow, Name("eth0 x"), {}, -1},
        {"an option", kShow, Name("-V"), {}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
    const auto reply = Read<TNetIpaddrShowReply>(tools, kShow, Name("eth0"));
    EXPECT_EQ(reply.tInfo.mtu, 1400);
    EXPECT_STREQ(reply.tInfo.mac, "00:11:22:33:44:55");
    ASSERT_EQ(reply.tInfo.num, 2U);
    EXPECT_STREQ(reply.tInfo.addr[0].addr, "10.1.2.3") << "IPv4 first";
    (void)tools.TakeRuns();
    for (const std::string& wrong : {Name("eth0").substr(1), Name("eth0") + "x"})
        EXPECT_FALSE(tools.Request(kShow, wrong).has_value());
    EXPECT_THAT(tools.TakeRuns(), testing::ElementsAre());
}

// A tool's output that ends somewhere in an address's line counts up to the line before, wherever that is.
TEST(Address, HalfALineIsNeitherAnErrorNorHalfANumber) {
    NotedTools tools;
    const std::string first =
        "2: eth0: mtu 1500 \n    link/ether 00:11:22:33:44:55 brd\n    inet6 2001:db8::1/64 scope "
        "global \n    alias ";
    const std::string last = "    inet6 2001:db8::2/64 scope global tentative dynamic \n";
    for (std::size_t kept = 0; kept <= last.size(); ++kept) {
        const std::string filler(kToolOutputBytesMax - first.size() - 1 - kept, '.');
        const std::string output = first + filler + "\n" + last + "more\n";
        tools.Answer("ip -6 addr show dev eth0", output);
        tools.Answer("ip addr show dev eth0", output);
        const u32 expected = kept < last.size() ? 1 : 2;
        const auto list = Read<TNetIpaddrGetReply>(tools, kGet, Of(10, "eth0"));
        EXPECT_EQ(list.nResult, 0) << kept;
        EXPECT_EQ(list.tIfaceIp.dwNum, expected) << kept;
        const auto info = Read<TNetIpaddrShowReply>(tools, kShow, Name("eth0"));
        EXPECT_EQ(info.nResult, 0) << kept;
        EXPECT_EQ(info.tInfo.num, expected) << kept;
    }
    tools.Answer("ip -6 addr show dev eth0", std::string(5000, 'x'));
    EXPECT_EQ(Read<TNetIpaddrGetReply>(tools, kGet, Of(10, "eth0")).tIfaceIp.dwNum, 0U) << "one endless line";
}

TEST(Address, SixteenOfTheLongestAreRead) {
    NotedTools tools;
    std::string output = "2: eth0@if12: <BROADCAST,MULTICAST,UP> mtu 1500\n    link/ether 00:11:22:33:44:55 brd\n";
    for (int i = 10; i < 26; ++i) {
        output += "    inet6 2001:1db8:1111:2222:3333:4444:5555:66" + std::to_string(i) +
                  "/128 scope global tentative \n       valid_lft forever preferred_lft forever\n";
    }
    output += "    inet6 fe80::11:22ff:fe33:4455/64 scope link \n       valid_lft forever preferred_lft forever\n";
    tools.Answer("ip -6 addr show dev eth0", output);
    tools.Answer("ip addr show dev eth0", output);
    const auto list = Read<TNetIpaddrGetReply>(tools, kGet, Of(10, "eth0"));
    ASSERT_EQ(list.tIfaceIp.dwNum, 16U);
    EXPECT_EQ(list.tIfaceIp.atIp[15].abyAddr[15], 0x25);
    EXPECT_EQ(list.tIfaceIp.atIp[15].dwPrefixLen, 128U);
    EXPECT_EQ(list.tIfaceIp.atIp[15].bTentative, 1U);
    const auto info = Read<TNetIpaddrShowReply>(tools, kShow, Name("eth0"));
    ASSERT_EQ(info.tInfo.num, 16U);
    EXPECT_STREQ(info.tInfo.addr[15].addr, "2001:1db8:1111:2222:3333:4444:5555:6625");
}

TEST(Address, ReadingIsLogged) {
    NotedTools tools;
    tools.Answer("ip -4 addr show dev eth0", "inet 10.1.2.3/8 scope global eth0");
    tools.Answer("ip -6 addr show dev eth0", "inet6 2001:db8::1/64 scope global tentative dynamic");
    tools.Answer("ip -4 addr show dev eth9", "No.", 1);
    tools.Answer("ip -6 addr show dev eth9", "No.", 1);
    tools.Answer("ip -4 addr show dev half", "inet 10.1.2.3 scope global eth0");
    tools.Answer("ip -6 addr show dev half", "inet6 2001:db8::1/64 global");
    tools.Answer("ip addr show dev eth0",
                 "mtu 1400 qdisc link/ether 00:11:22:33:44:55 brd inet 10.1.2.3/8 scope global eth0");
    tools.Answer("ip addr show dev lo", "mtu 9");
    tools.Answer("ip addr show dev eth9", "No.", 1);
    const LoggedRequest rows[] = {
        {"both",
         kGet,
         Of(11, "eth0"),
         {"GetIpaddrV4: GetIpaddrV4 cmd : ip ip -4 addr show dev eth0",
          "GetIpaddrV4: inet 10.1.2.3/8 scope global eth0",
          "GetIpaddrV6: GetIpaddrV6 cmd : ip ip -6 addr show dev eth0",
          "GetIpaddrV6: read buf inet6 2001:db8::1/64 scope global tentative dynamic",
          "GetIpaddrV6: it's tentative address, mark it", "GetIpaddrV6: achScopeType = scope global tentative dynamic",
          "GetIpaddrV6: it's ra address, ip 2001:db8::1 "}},
        {"no interface",
         kGet,
         Of(11, "eth9"),
         {"GetIpaddrV4: GetIpaddrV4 cmd : ip ip -4 addr show dev eth9", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: No.", "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!",
          "IpaddrGet: GetIpaddrV4 error, pchIfaceName : eth9!", "ApidIpaddrGet: IpaddrGet error!"}},
        {"no interface, IPv6",
         kGet,
         Of(10, "eth9"),
         {"GetIpaddrV6: GetIpaddrV6 cmd : ip ip -6 addr show dev eth9", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: No.", "GetIpaddrV6: ExecCmdAndGetOutput error!",
          "ApidIpaddrGet: IpaddrGet error!"}},
        {"no prefix",
         kGet,
         Of(2, "half"),
         {"GetIpaddrV4: GetIpaddrV4 cmd : ip ip -4 addr show dev half", "GetIpaddrV4: inet 10.1.2.3 scope global eth0",
          "GetIpaddrV4: FindStrMatchHead error!",
          "GetIpaddrV4: FindStrMatchHead outbuf : inet 10.1.2.3 scope global eth0!",
          "ApidIpaddrGet: IpaddrGet error!"}},
        {"no scope",
         kGet,
         Of(10, "half"),
         {"GetIpaddrV6: GetIpaddrV6 cmd : ip ip -6 addr show dev half",
          "GetIpaddrV6: read buf inet6 2001:db8::1/64 global", "GetIpaddrV6: FindStrMatchHead error!",
          "GetIpaddrV6: FindStrMatchHead outbuf : 2001:db8::1/64 global!", "ApidIpaddrGet: IpaddrGet error!"}},
        {"an unknown family",
         kGet,
         Of(3, "eth0"),
         {"IpaddrGet: the wSinFamily 3 is not supportted!", "ApidIpaddrGet: IpaddrGet error!"}},
        {"an option", kGet, Of(2, "-V"), {"GetIpaddrV4: the text [-V] is invalid!", "ApidIpaddrGet: IpaddrGet error!"}},
        {"text",
         kShow,
         Name("eth0"),
         {"ipaddr_show_filter: ip ip addr show dev eth0", "ipaddr_show_filter: ipaddr_show_info->mtu=1400",
          "ipaddr_show_filter: ipaddr_show_info->mac:30:30:3a:31:31:3a"}},
        {"no Ethernet",
         kShow,
         Name("lo"),
         {"ipaddr_show_filter: ip ip addr show dev lo", "ipaddr_show_filter: ipaddr_show_info->mtu=9",
          "ipaddr_show_filter: ip ip addr show dev lo", "ipaddr_show_filter: mtu 9",
          "apid_ipaddr_show_filter: api_ipaddr_show_filter error!"}},
        {"text, no interface",
         kShow,
         Name("eth9"),
         {"ipaddr_show_filter: ip ip addr show dev eth9", "ipaddr_show_filter: ip ip addr show dev eth9",
          "ipaddr_show_filter: No.", "apid_ipaddr_show_filter: api_ipaddr_show_filter error!"}},
        {"nothing printed",
         kShow,
         Name("eth5"),
         {"ipaddr_show_filter: ip ip addr show dev eth5", "ipaddr_show_filter: don't find any information!",
          "apid_ipaddr_show_filter: api_ipaddr_show_filter error!"}},
        {"a wrong size", kShow, "x", {"apid_ipaddr_show_filter: the size is error:size=1"}},
    };
    LoggedLines log(5);
    for (const LoggedRequest& row : rows)
        CheckLog(row, tools, log);
    TNetIfaceIp list{};
    EXPECT_EQ(GetIpaddrV4(nullptr, &list), -1);
    EXPECT_EQ(GetIpaddrV6("eth0", nullptr, 0), -1);
    EXPECT_EQ(IpaddrGetEx("eth9", 11, &list), -1);
    EXPECT_THAT(TakeLines(log), testing::ElementsAre("GetIpaddrV4: pchIfaceName or ptNetIfaceIp is NULL!",
                                                     "GetIpaddrV6: pchIfaceName or ptNetIfaceIp is NULL!",
                                                     "GetIpaddrV4: GetIpaddrV4 cmd : ip ip -4 addr show dev eth9",
                                                     "TesselExecCmdAndGetOutput: ip", "TesselExecCmdAndGetOutput: No.",
                                                     "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!",
                                                     "IpaddrGetEx: GetIpaddrV4 error, pchIfaceName : eth9!"));
}

}  // namespace
}  // namespace tessel::test
