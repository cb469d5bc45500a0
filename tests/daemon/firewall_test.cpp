// The firewall: which lines are run when a rule is absent, when it is there, and when one of them fails.
#include "tests/support/firewall.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/daemon.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;

// One line that is run. What stands in front of it tells:
//   '.' its failure is ignored    '!' its failure ends the command with -1    '=' its result is the reply's, so far
//   ' ' it is run always    '?' only when a check does not find it    '$' the same, and finding it ends the command
//   '+' it is a LOG rule, run when the next line is, after that one's check
// Behind " # " stands what is logged when it fails.
using Steps = std::vector<std::string>;

struct Sequence {
    const char* description;
    u32 type;
    std::string request;
    Steps steps;
};

std::string LineOf(const std::string& step) {
    return step.substr(2, step.find(" # ") - 2);
}

std::string CheckOf(const std::string& step) {
    std::string line = LineOf(step);
    line[line.find('-') + 1] = 'C';
    return line;
}

struct Outcome {
    std::vector<std::string> runs;
    i32 status = 0;
};

Outcome Expected(const Steps& steps, bool isPresent, std::size_t failing) {
    Outcome outcome;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (steps[i][1] == '+') continue;
        const bool isChecked = steps[i][1] != ' ';
        if (isChecked) outcome.runs.push_back(CheckOf(steps[i]));
        if (isChecked && isPresent && steps[i][1] == '$') return outcome;
        if (isChecked && isPresent) continue;
        if (i > 0 && steps[i - 1][1] == '+') outcome.runs.push_back(LineOf(steps[i - 1]));
        outcome.runs.push_back(LineOf(steps[i]));
        if (steps[i][0] == '=' || (steps[i][0] == '!' && i == failing)) outcome.status = i == failing ? -1 : 0;
        if (steps[i][0] == '!' && i == failing) break;
    }
    return outcome;
}

constexpr char kMessages[] = "/var/log/messages";

void CheckSequence(const Sequence& row, StandInTools& tools) {
    const std::size_t none = row.steps.size();
    const auto check = [&](bool isPresent, std::size_t failing) {
        const Outcome expected = Expected(row.steps, isPresent, failing);
        EXPECT_EQ(RequestStatus(row.type, row.request), expected.status) << row.description << ", failing: " << failing;
        EXPECT_THAT(tools.TakeRuns(), testing::ElementsAreArray(expected.runs))
            << row.description << (isPresent ? ", present" : ", absent") << ", failing: " << failing;
    };
    for (const bool isPresent : {true, false}) {
        for (const std::string& step : row.steps)
            tools.Answer(CheckOf(step), "iptables: Bad rule\n", isPresent || step[1] == ' ' ? 0 : 1);
        check(isPresent, none);
        for (std::size_t i = 0; i < none; ++i) {
            const std::size_t logged = ReadFile(kMessages).size();
            tools.Answer(LineOf(row.steps[i]), "no\n", 1);
            check(isPresent, i);
            tools.Answer(LineOf(row.steps[i]), "", 0);
            const std::size_t text = row.steps[i].find(" # ");
            if (isPresent || text == std::string::npos) continue;
            const std::string line = ": " + row.steps[i].substr(text + 3) + "\n";
            EXPECT_TRUE(Eventually([&] { return ReadFile(kMessages).find(line, logged) != std::string::npos; }))
                << row.steps[i];
        }
    }
}

Steps operator+(Steps first, const Steps& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const std::vector<std::string> kTools = {
    "arp", "iptables", "ip6tables", "iptables-save", "ip6tables-save", "iptables-restore", "ip6tables-restore"};
constexpr char kMac[] = "02:00:00:00:00:09";

TEST(Firewall, ListsAreSwitched) {
    StandInTools tools(kTools);
    const Daemon daemon;
    const std::string ignored = " # ExecCmd error!but not care this!";
    const std::string ignoredToo = " # ExecCmd error! but not care this!";
    const std::string ends = " # ExecCmd error!";
    const Steps whiteV4 = {". iptables -D INPUT -j blacklist" + ignored, ". iptables -t filter -F blacklist" + ignored,
                           ".?iptables -I whitelist -s 127.0.0.0/8 -j ACCEPT" + ignored,
                           "!?iptables -A whitelist -j DROP" + ends, "!?iptables -I INPUT -j whitelist" + ends};
    const Steps blackV4 = {
        ". iptables -D INPUT -j whitelist" + ignoredToo, ". iptables -t filter -F whitelist" + ignored,
        ".?iptables -I blacklist -s 127.0.0.0/8 -j ACCEPT" + ignoredToo, "!?iptables -I INPUT -j blacklist" + ends};
    const Steps whiteV6 = {". ip6tables -D INPUT -j blacklist" + ignored,
                           ". ip6tables -t filter -F blacklist" + ignored,
                           ".?ip6tables -A whitelist -s ::1/64 -j ACCEPT" + ignored,
                           "!?ip6tables -A whitelist -j DROP" + ends, "!?ip6tables -I INPUT -j whitelist" + ends};
    const Steps blackV6 = {
        ". ip6tables -D INPUT -j whitelist" + ignoredToo, ". ip6tables -t filter -F whitelist" + ignored,
        ".?ip6tables -I blacklist -s ::1/64 -j ACCEPT" + ignored, "!?ip6tables -I INPUT -j blacklist" + ends};
    const Steps enabled[] = {whiteV4, blackV4, whiteV6, blackV6, whiteV4 + whiteV6, blackV4 + blackV6};
    const auto off = [](const std::string& program, const std::string& chain) {
        return Steps{"! " + program + " -D INPUT -j " + chain, "! " + program + " -t filter -F " + chain};
    };
    const Steps whiteOff = off("iptables", "whitelist");
    const Steps blackOff = off("iptables", "blacklist");
    const Steps whiteOffV6 = off("ip6tables", "whitelist");
    const Steps blackOffV6 = off("ip6tables", "blacklist");
    const Steps disabled[] = {whiteOff, blackOff, whiteOffV6, blackOffV6, whiteOff + whiteOffV6, blackOff + blackOffV6};
    for (const u32 type : {1U, 2U, 3U, 4U, 5U, 6U}) {
        CheckSequence({"enable", 0x1003, Number(type), enabled[type - 1]}, tools);
        CheckSequence({"disable", 0x1004, Number(type), disabled[type - 1]}, tools);
    }
}

TEST(Firewall, ChainsArpEntriesAndFiles) {
    StandInTools tools(kTools);
    const Daemon daemon;
    const std::string path = "/usr/rules";
    const std::string named("mine\0x", 6);
    const Sequence rows[] = {
        {"chain", 0x1005, Chain(1, "mine"), {"= iptables -t filter -N mine"}},
        {"IPv6 chain, NUL behind it", 0x1005, Chain(2, named), {"= ip6tables -t filter -N mine"}},
        {"chains", 0x1005, Chain(3, "a"), {"= iptables -t filter -N a", "= ip6tables -t filter -N a"}},
        {"the ICMP chain is hooked for both, whichever it is made for",
         0x1005,
         Chain(1, "icmppacket"),
         {"= iptables -t filter -N icmppacket", "=?iptables -I INPUT -j icmppacket",
          "=?ip6tables -I INPUT -j icmppacket"}},
        {"ARP", 0x100A, Arp("", kMac, "10.0.0.9"), {"! arp -s 10.0.0.9 02:00:00:00:00:09"}},
        {"ARP on eth1", 0x100A, Arp("eth1", kMac, "10.0.0.9"), {"! arp -s -i eth1 10.0.0.9 02:00:00:00:00:09"}},
        {"no ARP", 0x100B, Arp("", "-x y", "10.0.0.9"), {"! arp -d 10.0.0.9"}},
        {"no ARP on eth1", 0x100B, Arp("eth1", "", "10.0.0.9"), {"! arp -d 10.0.0.9 -i eth1"}},
        {"save IPv4", 0x1008, Number(1) + path, {"= iptables-save > /usr/rules-4"}},
        {"save both", 0x1008, Number(3) + path, {"= iptables-save > /usr/rules-4", "= ip6tables-save > /usr/rules-6"}},
        {"restore IPv6", 0x1009, Number(2) + path, {"= ip6tables-restore < /usr/rules-6"}},
        {"restore both",
         0x1009,
         Number(3) + path,
         {"= iptables-restore < /usr/rules-4", "= ip6tables-restore < /usr/rules-6"}},
    };
    for (const Sequence& row : rows)
        CheckSequence(row, tools);
}

struct ListKind {
    std::string program;
    std::string blackAdd;
    std::string prefix;
    std::string text;
};

// One entry. On the white list it is a rule, on the black list (3 and 4) one with its LOG rule.
Steps Entry(u32 operation, const ListKind& kind, const std::string& match) {
    const std::string added = operation % 2 == 1 ? "!?" : "! ";
    const std::string log = " -j LOG --log-prefix \"***" + kind.prefix + "***\" --log-level notice";
    const std::string black = kind.program + (operation == 3 ? kind.blackAdd : " -D") + " blacklist" + match;
    const std::string white = kind.program + (operation == 1 ? " -I" : " -D") + " whitelist" + match;
    if (operation <= 2) return {added + white + " -j RETURN # ExecCmd error!"};
    return {".+" + black + log + " # ExecCmd error! " + kind.text, added + black + " -j DROP # ExecCmd error!"};
}

TEST(Firewall, EntriesOfTheLists) {
    StandInTools tools(kTools);
    const Daemon daemon;
    const ListKind ip{"iptables", " -A", "BLACKLIST", "ip rule add log record fail"};
    const ListKind ipV6{"ip6tables", " -A", "BLACKLISTV6", "ip rule add log record fail"};
    const ListKind mac{"iptables", " -I", "MACFILTER", "mac rule log record add or del fail"};
    const ListKind macV6{"ip6tables", " -I", "MACV6", "v6 mac rule log record add or del fail"};
    const std::string range = " -m iprange --src-range 192.168.1.0-192.168.1.20";
    const std::string rangeV6 = " -m iprange --src-range 2001:db8::-2001:db9::";
    const std::string from = " -m mac --mac-source 02:00:00:00:00:09";
    for (const u32 op : {1U, 2U, 3U, 4U}) {
        const Sequence rows[] = {
            {"network", 0x1001, Network(op, 2, "192.168.1.0", 24), Entry(op, ip, " -s 192.168.1.0/24")},
            {"range", 0x1001, Network(op, 2, "192.168.1.0", 9, "192.168.1.20"), Entry(op, ip, range)},
            {"IPv6 network", 0x1001, Network(op, 10, "2001:db8::", 32), Entry(op, ipV6, " -s 2001:db8::/32")},
            {"IPv6 range", 0x1001, Network(op, 10, "2001:db8::", 9, "2001:db9::"), Entry(op, ipV6, rangeV6)},
            {"MAC", 0x1002, Number(op) + kMac, Entry(op, mac, from) + Entry(op, macV6, from)},
            {"pair", 0x100D, Number(op) + kMac + "10.0.0.9", Entry(op, mac, " -s 10.0.0.9/32" + from)},
            {"IPv6 pair", 0x100D, Number(op) + kMac + "fe80::9", Entry(op, macV6, " -s fe80::9/32" + from)},
        };
        for (const Sequence& row : rows)
            CheckSequence(row, tools);
    }
}

// One rule for ports, added or deleted, with its LOG rule.
Steps PortRule(const std::string& when, const std::string& rule, const char* target, const std::string& text) {
    const std::string prefix = rule.starts_with("ip6") ? "***PORTFILTERV6***" : "***PORTFILTER***";
    const std::string log = " -j LOG --log-prefix \"" + prefix + "\" --log-level notice # ExecCmd error!";
    return {".+" + rule + log + text + "port filter rule log record add fail!",
            when + rule + " -j " + target + " # ExecCmd error! but not care this!"};
}

TEST(Firewall, EchoRequestsAndPorts) {
    StandInTools tools(kTools);
    const Daemon daemon;
    const std::string echo = "iptables -I icmppacket -p icmp --icmp-type 8 -j ";
    const std::string echoV6 = "ip6tables -I icmppacket -p icmpv6 --icmpv6-type 128 -j ";
    const Steps flush = {"= iptables -F icmppacket"};
    const Steps flushV6 = {"= ip6tables -F icmppacket"};
    const Steps allow = {"=?" + echo + "RETURN"};
    const Steps allowV6 = {"=?" + echoV6 + "RETURN"};
    const Steps drop = {"= " + echo + "LOG --log-prefix \"***ICMPPACKET***\" --log-level notice # " +
                            "ExecCmd error! icmp rule add log record fail",
                        "=?" + echo + "DROP"};
    const Steps dropV6 = {"= " + echoV6 + "LOG --log-prefix \"***ICMPPACKETV6***\" --log-level notice # " +
                              "ExecCmd error! icmpv6 rule add log record fail",
                          "=?" + echoV6 + "DROP"};
    const std::string web = " -m multiport --dport 80,443";
    const Steps all = PortRule("=?", "iptables -A INPUT -p tcp" + web, "DROP", "tcp ") +
                      PortRule("=?", "iptables -A INPUT -p udp" + web, "DROP", " udp ") +
                      PortRule("=$", "ip6tables -A INPUT -p tcp" + web, "DROP", "tcp ") +
                      PortRule("=$", "ip6tables -A INPUT -p udp" + web, "DROP", " udp ");
    const Sequence rows[] = {
        {"drop", 0x1006, Number(2), flush + drop},
        {"allow", 0x1006, Number(1), flush + allow},
        {"allow IPv6", 0x1006, Number(3), flushV6 + allowV6},
        {"drop IPv6", 0x1006, Number(4), flushV6 + dropV6},
        {"allow both", 0x1006, Number(5), flush + flushV6 + allow + allowV6},
        {"drop both", 0x1006, Number(6), flush + flushV6 + drop + dropV6},
        {"every transport", 0x1007, Ports(1, 3, 0, 2, 2, "80,443"), all},
        {"tcp", 0x1007, Ports(1, 1, 1, 1, 1, "22"),
         PortRule("=?", "iptables -A INPUT -p tcp --sport 22", "RETURN", "")},
        {"udp", 0x1007, Ports(1, 2, 2, 2, 4, "53"),
         PortRule("=$", "ip6tables -A OUTPUT -p udp --dport 53", "DROP", "")},
        {"del", 0x1007, Ports(2, 1, 2, 2, 3, "5"), PortRule("= ", "iptables -D OUTPUT -p udp --dport 5", "RETURN", "")},
    };
    constexpr char kIgnoreEchoes[] = "/proc/sys/net/ipv4/icmp_echo_ignore_all";
    WriteFile(kIgnoreEchoes, "1");
    for (const Sequence& row : rows) {
        CheckSequence(row, tools);
        EXPECT_EQ(ReadFile(kIgnoreEchoes), row.request == Number(2) ? "1\n" : "0\n") << "allowing answers again";
    }
    // What is there already does not hide that another rule failed.
    tools.Answer("iptables -A INPUT -p tcp" + web + " -j DROP", "", 1);
    tools.Answer("iptables -C INPUT -p udp" + web + " -j DROP", "", 0);
    EXPECT_EQ(RequestStatus(0x1007, Ports(1, 1, 0, 2, 2, "80,443")), -1);
}

struct Refusal {
    u32 type;
    std::string request;
    const char* text;  // of the log
};

TEST(Firewall, WhatMakesNoSenseRunsNothing) {
    StandInTools tools(kTools);
    const Daemon daemon;
    const Refusal rows[] = {
        {0x1003, "", "filter list 0 not support!"},
        {0x1004, Number(7), "filter list 7 not support!"},
        {0x1001, Network(5, 2, "10.0.0.0", 8), "cmd 5 is not support"},
        {0x1001, Network(1, 11, "", 8), "IpFilterListManage wSinFamily 11 is invalid!"},
        {0x1002, Number(0) + kMac, "IpRuleDel error!"},
        {0x1002, std::string("\1\0\0", 3), "the size is error:size=3"},
        {0x1002, Number(1) + "02:00 -j ACCEPT", "the text [02:00 -j ACCEPT] is invalid!"},
        {0x100D, Number(1) + "02:00:00:00:00:0", "the size is error:size=20"},
        {0x100D, Number(1) + kMac + "10.0.0.1 x", "the text [10.0.0.1 x] is invalid!"},
        {0x100D, Number(1) + "02:00 00:00:00:09" + "::1", "the text [02:00 00:00:00:09] is invalid!"},
        {0x1005, Chain(3, "-F"), "the text [-F] is invalid!"},
        {0x1005, Chain(4, "mine"), "the protocol type 4 is invalid!"},
        {0x1006, Number(7), "icmp filter cmd 7 not support!"},
        {0x1007, Ports(1, 4, 1, 1, 1, "80"), "eInet 4 is not support"},
        {0x1007, Ports(9, 0, 1, 1, 1, "80"), "eCmd 9 is invalid"},
        {0x1007, Ports(3, 1, 1, 1, 1, "80"), "eCmd 3 is invalid"},
        {0x1007, Ports(1, 1, 1, 3, 1, "80"), "ePortType 3 is not support"},
        {0x1007, Ports(1, 1, 1, 1, 1, "80 -j ACCEPT"), "the text [80 -j ACCEPT] is invalid!"},
        {0x1008, Number(3) + "-M/tmp/evil", "the text [-M/tmp/evil] is invalid!"},
        {0x1009, Number(0) + "/usr/rules", "the protocol type 0 is invalid!"},
        {0x100A, Arp("", "", "10.0.0.9"), " ip or mac is null"},
        {0x100A, Arp("", kMac, "--file=/etc/ethers"), "the text [--file=/etc/ethers] is invalid!"},
        {0x100B, Arp("eth0 x", "", "10.0.0.9"), "the text [eth0 x] is invalid!"},
    };
    for (const Refusal& row : rows) {
        EXPECT_EQ(RequestStatus(row.type, row.request), -1) << row.text;
        EXPECT_THAT(tools.TakeRuns(), IsEmpty()) << row.text;
        EXPECT_TRUE(Eventually([&] { return ReadFile(kMessages).find(row.text) != std::string::npos; })) << row.text;
    }
}

// Whole or not at all: no line is run with a text that was cut.
TEST(Firewall, TextsOfEveryLength) {
    StandInTools tools(kTools);
    const Daemon daemon;
    const std::pair<u32, std::string> commands[] = {
        {0x1002, Number(2)}, {0x100D, Number(4) + kMac}, {0x1005, Chain(3, "")}, {0x1008, Number(3)}};
    for (const auto& [type, record] : commands) {
        for (const std::size_t length : {1U, 255U, 850U, 930U, 940U, 945U, 950U, 960U, 970U, 975U, 1000U, 3050U}) {
            const std::string text(length, 'x');
            const i32 status = RequestStatus(type, record + text);
            const std::vector<std::string> runs = tools.TakeRuns();
            EXPECT_THAT(runs, Each(HasSubstr(text))) << std::hex << type << std::dec << " length " << length;
            const bool ran = !runs.empty();
            EXPECT_TRUE(length > 850 || (ran && status == 0)) << std::hex << type << std::dec << " length " << length;
            EXPECT_TRUE(length < 1000 || !ran) << std::hex << type << std::dec << " length " << length;
            EXPECT_TRUE(ran || status == -1) << std::hex << type << std::dec << " length " << length;
        }
    }
}

// Of every command, also those whose record has a fixed size. Without tools, nothing that is run works.
TEST(Firewall, PayloadsOfEveryLength) {
    const char* const before = getenv("PATH");
    const std::string path(before == nullptr ? "" : before);
    setenv("PATH", "/nowhere", 1);
    const Daemon daemon;
    setenv("PATH", path.c_str(), 1);
    ASSERT_EQ(RequestStatus(0x702, Number(0)), 0) << "a log of all this would be large";
    std::minstd_rand random(20261121);
    for (const u32 type :
         {0x1001U, 0x1002U, 0x1003U, 0x1004U, 0x1005U, 0x1006U, 0x1007U, 0x1008U, 0x1009U, 0x100AU, 0x100BU, 0x100DU}) {
        for (std::size_t length = 0; length <= 3072; ++length) {
            std::string payload = Padded(Number(1), length);
            const bool isText = length % 2 == 0;
            for (std::size_t i = isText ? 4 : 0; i < length; ++i)
                payload[i] = isText ? 'x' : static_cast<char>(random());
            ASSERT_EQ(RequestStatus(type, payload), -1) << std::hex << type << std::dec << " length " << length;
        }
    }
}

}  // namespace
}  // namespace tessel::test
