// The firewall: what is run and logged when a rule is absent, when it is there, and when one of the lines fails.
#include "tests/support/firewall.h"

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/log_control.h"
#include "firewall/arp.h"
#include "firewall/rule.h"
#include "tests/support/noted.h"

namespace tessel::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::StartsWith;

using Lines = std::vector<std::string>;

// One line that is run. What stands in front of it says what becomes of it:
//   '.' its failure is ignored    '!' its failure ends the command with -1    '=' its result is the reply's, so far
//   ' ' it is run always    '?' only when a check does not find it    '$' the same, and finding it ends the command
//   '+' it is a LOG rule, run when the next line is, after that one's check    's' it is run by the shell
// Behind " # " stands what is logged when it fails, if not "ExecCmd error!".
struct Step {
    template <typename Text>
    Step(const Text& text) : logged(text), failure("ExecCmd error!"), result(logged[0]), when(logged[1]) {
        const std::size_t end = logged.find(" # ");
        if (end != std::string::npos) failure = logged.substr(end + 3);
        line = logged = logged.substr(2, end - 2);
        program = line.substr(0, line.find(' '));
        logged = program + " " + line;
        // Tools see a run of blanks as one separator.
        if (line.find("  ") != std::string::npos) line.erase(line.find("  "), 1);
        check = line;
        check[check.find('-') + 1] = 'C';
    }
    std::string program, line, check, logged, failure;
    char result, when;
};
using Steps = std::vector<Step>;

Steps operator+(Steps first, const Steps& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

struct Sequence {
    u32 type;
    std::string request;
    Steps steps;
};

// In whose name a command logs, and what its handler logs of a failure.
struct Names {
    std::string function;
    std::string handlerLine;
};

const std::map<u32, Names> kNames = {
    {0x1001, {"IpFilterListManage: ", "ApidIpFilterListManage: IpFilterListManage error!"}},
    {0x1002, {"MacFilterListManage: ", "ApidMacFilterListManage: IpRuleDel error!"}},
    {0x1003, {"FilterEnable: ", "ApidFilterEnable: FilterEnable error!"}},
    {0x1004, {"FilterDisable: ", "ApidFilterDisable: FilterDisable error!"}},
    {0x1005, {"AddChain: ", ""}},
    {0x1006, {"IcmpFilterManage: ", "ApidIcmpManage: IcmpFilterManage error!"}},
    {0x1007, {"PortFilterManage: ", "ApidPortFilterManage: PortFilterManage error!"}},
    {0x1008, {"SaveFirewall: ", ""}},
    {0x1009, {"RestoreFirewall: ", ""}},
    {0x100A, {"AddArpEntry: ", ""}},
    {0x100B, {"DelArpEntry: ", ""}},
    {0x100D, {"IpMacFilterListManage: ", "ApidIpAndMacFilterListManage: IpRuleDel error!"}},
};

// What a command runs, logs and answers. `failing` is the step that fails, if any.
struct Outcome {
    Outcome(const Sequence& row, bool isPresent, const Step* failing) {
        const auto& [function, handlerLine] = kNames.at(row.type);
        // The rule of an IP filter is logged in words of its own, before anything is run.
        const bool isIpFilter = row.type == 0x1001;
        const std::string& last = row.steps.back().logged;
        const std::string isDel = last.find(" -D ") != std::string::npos ? "1" : "0";
        if (isIpFilter) log = {function + "achCmdBuf: " + last + " , del flag :" + isDel};
        const Step* logRule = nullptr;
        for (const Step& step : row.steps) {
            if (step.when == '+') logRule = &step;
            if (step.when == '+') continue;
            const bool isChecked = step.when == '?' || step.when == '$';
            if (isChecked) runs.push_back(step.check);
            if (isChecked) log.emplace_back("RuleCheck: use check option");
            if (isChecked && isPresent && step.when == '$') break;
            if (isChecked && isPresent) continue;
            if (isChecked)
                log.insert(log.end(),
                           {"RuleCheck: " + step.logged, "RuleCheck: Bad rule", "RuleCheck: the rule not exist"});
            for (const Step* run : {std::exchange(logRule, nullptr), &step}) {
                if (run == nullptr) continue;
                runs.push_back(run->line);
                const bool isShell = run->when == 's';
                if (!isShell && (!isIpFilter || run != &step)) log.push_back(function + "achCmdBuf: " + run->logged);
                if (run != failing) continue;
                if (!isShell) log.insert(log.end(), {"ExecCmd: " + run->program, "ExecCmd: no"});
                log.push_back(function + run->failure);
            }
            if (step.result == '=') status = &step == failing ? -1 : 0;
            if (step.result != '!' || &step != failing) continue;
            status = -1;
            break;
        }
        if (status != 0 && !handlerLine.empty()) log.push_back(handlerLine);
    }
    Lines runs;
    Lines log;
    i32 status = 0;
};

class Firewall : public testing::Test {
  protected:
    ~Firewall() override {
        (void)tools_.TakeRuns();
    }

    // With every rule there and with none, and each time with each line failing in turn.
    void Check(const std::vector<Sequence>& rows) {
        for (const Sequence& row : rows) {
            for (const bool isPresent : {true, false}) {
                for (const Step& step : row.steps)
                    tools_.Answer(step.check, "Bad rule", isPresent ? 0 : 1);
                for (const Step& step : row.steps)
                    Check(row, isPresent, &step);
                Check(row, isPresent, nullptr);
            }
        }
    }

    NotedTools tools_;
    LoggedLines log_{4};

  private:
    void Check(const Sequence& row, bool isPresent, const Step* failing) {
        const std::string line = failing != nullptr ? failing->line : "nothing";
        const std::string what = row.steps[0].line + (isPresent ? ", present" : ", absent") + ", failing: " + line;
        const Outcome expected(row, isPresent, failing);
        tools_.Answer(line, "no", 1);
        tools_.Check({what.c_str(), row.type, row.request, expected.runs, expected.status});
        tools_.Answer(line, "", 0);
        EXPECT_THAT(log_.Take(), ElementsAreArray(expected.log)) << what;
    }
};

constexpr char kMac[] = "02:00:00:00:00:09";

TEST_F(Firewall, ListsAreSwitched) {
    const std::string ignored = " # ExecCmd error!but not care this!";
    const std::string ignoredToo = " # ExecCmd error! but not care this!";
    const auto white = [&](const std::string& program, const std::string& loopback) {
        return Steps{". " + program + " -D INPUT -j blacklist" + ignored,
                     ". " + program + " -t filter -F blacklist" + ignored,
                     ".?" + program + loopback + " -j ACCEPT" + ignored, "!?" + program + " -A whitelist -j DROP",
                     "!?" + program + " -I INPUT -j whitelist"};
    };
    const auto black = [&](const std::string& program, const std::string& loopback) {
        return Steps{". " + program + " -D INPUT -j whitelist" + ignoredToo,
                     ". " + program + " -t filter -F whitelist" + ignored, ".?" + program + loopback,
                     "!?" + program + " -I INPUT -j blacklist"};
    };
    const auto off = [](const std::string& program, const std::string& chain) {
        return Steps{"! " + program + " -D INPUT -j " + chain, "! " + program + " -t filter -F " + chain};
    };
    const Steps whiteV4 = white("iptables", " -I whitelist -s 127.0.0.0/8");
    const Steps whiteV6 = white("ip6tables", " -A whitelist -s ::1/64");
    const Steps blackV4 = black("iptables", " -I blacklist -s 127.0.0.0/8 -j ACCEPT" + ignoredToo);
    const Steps blackV6 = black("ip6tables", " -I blacklist -s ::1/64 -j ACCEPT" + ignored);
    Check({
        {0x1003, Number(1), whiteV4},
        {0x1003, Number(2), blackV4},
        {0x1003, Number(3), whiteV6},
        {0x1003, Number(4), blackV6},
        {0x1003, Number(5), whiteV4 + whiteV6},
        {0x1003, Number(6), blackV4 + blackV6},
        {0x1004, Number(1), off("iptables", "whitelist")},
        {0x1004, Number(2), off("iptables", "blacklist")},
        {0x1004, Number(3), off("ip6tables", "whitelist")},
        {0x1004, Number(4), off("ip6tables", "blacklist")},
        {0x1004, Number(5), off("iptables", "whitelist") + off("ip6tables", "whitelist")},
        {0x1004, Number(6), off("iptables", "blacklist") + off("ip6tables", "blacklist")},
    });
}

TEST_F(Firewall, ChainsArpEntriesAndFiles) {
    const std::string path = "/usr/rules";
    const std::string named("mine\0x", 6);
    const Steps icmpChain = {"= iptables -t filter -N icmppacket", "=?iptables -I INPUT -j icmppacket",
                             "=?ip6tables -I INPUT -j icmppacket"};
    const Steps save = {"= iptables-save > /usr/rules-4", "= ip6tables-save > /usr/rules-6"};
    const Steps restore = {"= iptables-restore < /usr/rules-4", "= ip6tables-restore < /usr/rules-6"};
    Check({
        {0x1005, Chain(1, "mine"), {"= iptables -t filter -N mine"}},
        {0x1005, Chain(2, named), {"= ip6tables -t filter -N mine"}},
        {0x1005, Chain(3, "a"), {"= iptables -t filter -N a", "= ip6tables -t filter -N a"}},
        {0x1005, Chain(1, "icmppacket"), icmpChain},
        {0x100A, Arp("", kMac, "10.0.0.9"), {"! arp -s 10.0.0.9 02:00:00:00:00:09"}},
        {0x100A, Arp("eth1", kMac, "10.0.0.9"), {"! arp -s -i eth1 10.0.0.9 02:00:00:00:00:09"}},
        {0x100B, Arp("", "-x y", "10.0.0.9"), {"! arp -d 10.0.0.9"}},
        {0x100B, Arp("eth1", "", "10.0.0.9"), {"! arp -d 10.0.0.9 -i eth1"}},
        {0x1008, Number(1) + path, {save[0]}},
        {0x1008, Number(3) + path, save},
        {0x1009, Number(2) + path, {restore[1]}},
        {0x1009, Number(3) + path, restore},
    });
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
    if (operation <= 2) return {added + white + " -j RETURN"};
    return {".+" + black + log + " # ExecCmd error! " + kind.text, added + black + " -j DROP"};
}

TEST_F(Firewall, EntriesOfTheLists) {
    const ListKind ip{"iptables", " -A", "BLACKLIST", "ip rule add log record fail"};
    const ListKind ipV6{"ip6tables", " -A", "BLACKLISTV6", "ip rule add log record fail"};
    const ListKind mac{"iptables", " -I", "MACFILTER", "mac rule log record add or del fail"};
    const ListKind macV6{"ip6tables", " -I", "MACV6", "v6 mac rule log record add or del fail"};
    const std::string range = " -m iprange --src-range 192.168.1.0-192.168.1.20";
    const std::string rangeV6 = " -m iprange --src-range 2001:db8::-2001:db9::";
    const std::string from = " -m mac --mac-source 02:00:00:00:00:09";
    for (const u32 op : {1U, 2U, 3U, 4U}) {
        const std::string fromV6 = (op == 1 ? " " : "") + from;  // two blanks in front
        Check({
            {0x1001, Network(op, 2, "192.168.1.0", 24), Entry(op, ip, " -s 192.168.1.0/24")},
            {0x1001, Network(op, 2, "192.168.1.0", 9, "192.168.1.20"), Entry(op, ip, range)},
            {0x1001, Network(op, 10, "2001:db8::", 32), Entry(op, ipV6, " -s 2001:db8::/32")},
            {0x1001, Network(op, 10, "2001:db8::", 9, "2001:db9::"), Entry(op, ipV6, rangeV6)},
            {0x1002, Number(op) + kMac, Entry(op, mac, from) + Entry(op, macV6, from)},
            {0x100D, Number(op) + kMac + "10.0.0.9", Entry(op, mac, " -s 10.0.0.9/32" + from)},
            {0x100D, Number(op) + kMac + "fe80::9", Entry(op, macV6, " -s fe80::9/32" + fromV6)},
        });
    }
}

// One rule for ports, added or deleted, with its LOG rule.
Steps PortRule(const std::string& when, const std::string& rule, const char* target, const std::string& text) {
    const std::string prefix = rule.starts_with("ip6") ? "***PORTFILTERV6***" : "***PORTFILTER***";
    const std::string log = " -j LOG --log-prefix \"" + prefix + "\" --log-level notice # ExecCmd error!";
    return {".+" + rule + log + text + "port filter rule log record add fail!",
            when + rule + " -j " + target + " # ExecCmd error! but not care this!"};
}

TEST_F(Firewall, EchoRequestsAndPorts) {
    const std::string echo = "iptables -I icmppacket -p icmp --icmp-type 8 -j ";
    const std::string echoV6 = "ip6tables -I icmppacket -p icmpv6 --icmpv6-type 128 -j ";
    const std::string answer = "echo \"0\" > /proc/sys/net/ipv4/icmp_echo_ignore_all";
    const Steps flush = {"= iptables -F icmppacket"};
    const Steps flushV6 = {"= ip6tables -F icmppacket"};
    const Steps allow = {"=?" + echo + "RETURN", ".ssh -c " + answer + " # " + answer};
    const Steps allowV6 = {"=?" + echoV6 + "RETURN"};
    const Steps drop = {"= " + echo + "LOG --log-prefix \"***ICMPPACKET***\" --log-level notice # " +
                            "ExecCmd error! icmp rule add log record fail",
                        "=?" + echo + "DROP"};
    const Steps dropV6 = {"= " + echoV6 + "LOG  --log-prefix \"***ICMPPACKETV6***\" --log-level notice # " +
                              "ExecCmd error! icmpv6 rule add log record fail",
                          "=?" + echoV6 + "DROP"};
    const std::string web = " -m multiport --dport 80,443";
    const Steps all = PortRule("=?", "iptables -A INPUT -p tcp" + web, "DROP", "tcp ") +
                      PortRule("=?", "iptables -A INPUT -p udp" + web, "DROP", " udp ") +
                      PortRule("=$", "ip6tables -A INPUT -p tcp" + web, "DROP", "tcp ") +
                      PortRule("=$", "ip6tables -A INPUT -p udp" + web, "DROP", " udp ");
    const Steps tcp = PortRule("=?", "iptables -A INPUT -p tcp  --sport ssh", "RETURN", "");
    const Steps udp = PortRule("=$", "ip6tables -A OUTPUT -p udp  --dport 53", "DROP", "");
    const Steps deletion = PortRule("= ", "iptables -D OUTPUT -p udp  --dport 5", "RETURN", "");
    Check({
        {0x1006, Number(1), flush + allow},
        {0x1006, Number(2), flush + drop},
        {0x1006, Number(3), flushV6 + allowV6},
        {0x1006, Number(4), flushV6 + dropV6},
        {0x1006, Number(5), flush + flushV6 + allow + allowV6},
        {0x1006, Number(6), flush + flushV6 + drop + dropV6},
        {0x1007, Ports(1, 3, 0, 2, 2, "80,443"), all},
        {0x1007, Ports(1, 1, 1, 1, 1, "ssh"), tcp},
        {0x1007, Ports(1, 2, 2, 2, 4, "53"), udp},
        {0x1007, Ports(2, 1, 2, 2, 3, "5"), deletion},
    });
    // What is there already does not hide that another rule failed.
    tools_.Answer("iptables -C INPUT -p tcp" + web + " -j DROP", "", 1);
    tools_.Answer("iptables -A INPUT -p tcp" + web + " -j DROP", "", 1);
    tools_.Answer("iptables -C INPUT -p udp" + web + " -j DROP", "", 0);
    EXPECT_EQ(tools_.Status(0x1007, Ports(1, 1, 0, 2, 2, "80,443")), -1);
}

struct Refusal {
    u32 type;
    std::string request;
    const char* text;  // of the log
};

TEST_F(Firewall, WhatMakesNoSenseRunsNothing) {
    const Refusal rows[] = {
        {0x1003, "", "filter list 0 not support!"},
        {0x1004, Number(7), "filter list 7 not support!"},
        {0x1001, Network(5, 2, "10.0.0.0", 8), "cmd 5 is not support"},
        {0x1002, Number(0) + kMac, "cmd 0 is not support"},
        {0x1002, Number(1) + "02:00 -j ACCEPT", "the text [02:00 -j ACCEPT] is invalid!"},
        {0x1002, Number(1) + kMac + ":10", "the text [02:00:00:00:00:09:10] is invalid!"},
        {0x100D, Number(1) + kMac + "10.0.0.1 x", "the text [10.0.0.1 x] is invalid!"},
        {0x100D, Number(1) + kMac + "localhost", "the text [localhost] is invalid!"},
        {0x100D, Number(1) + kMac + "fe80::1%eth0", "the text [fe80::1%eth0] is invalid!"},
        {0x100D, Number(1) + "02:00:00:00:00:0x::1", "the text [02:00:00:00:00:0x] is invalid!"},
        {0x1005, Chain(3, "-F"), "the text [-F] is invalid!"},
        {0x1005, Chain(3, ""), "the text [] is invalid!"},
        {0x1005, Chain(4, "mine"), "the protocol type 4 is invalid!"},
        {0x1006, Number(7), "icmp filter cmd 7 not support!"},
        {0x1007, Ports(1, 4, 1, 1, 1, "80"), "eInet 4 is not support"},
        {0x1007, Ports(3, 1, 1, 1, 1, "80"), "eCmd 3 is invalid"},
        {0x1007, Ports(1, 1, 1, 3, 1, "80"), "ePortType 3 is not support"},
        {0x1007, Ports(1, 1, 1, 2, 5, "80"), "ePortType 2 is not support"},
        {0x1007, Ports(1, 1, 1, 1, 1, "80 -j ACCEPT"), "the text [80 -j ACCEPT] is invalid!"},
        {0x1008, Number(3) + "-M/tmp/evil", "the text [-M/tmp/evil] is invalid!"},
        {0x1009, Number(0) + "/usr/rules", "the protocol type 0 is invalid!"},
        {0x100A, Arp("", "", "10.0.0.9"), " ip or mac is null"},
        {0x100A, Arp("", kMac, ""), " ip or mac is null"},
        {0x100A, Arp("", kMac, "--file=/etc/ethers"), "the text [--file=/etc/ethers] is invalid!"},
        {0x100A, Arp("", kMac, "localhost"), "the text [localhost] is invalid!"},
        {0x100A, Arp("", kMac, "fe80::1"), "the text [fe80::1] is invalid!"},
        {0x100A, Arp("", "pub", "10.0.0.9"), "the text [pub] is invalid!"},
        {0x100A, Arp("eth0 x", kMac, "10.0.0.9"), "the interface name [eth0 x] is invalid!"},
        {0x100B, Arp("", kMac, "localhost"), "the text [localhost] is invalid!"},
        {0x100B, Arp("-a", "", "10.0.0.9"), "the interface name [-a] is invalid!"},
    };
    for (const Refusal& row : rows) {
        const Names& names = kNames.at(row.type);
        tools_.Check({row.text, row.type, row.request, {}, -1});
        Lines expected = {names.function + row.text};
        if (!names.handlerLine.empty()) expected.push_back(names.handlerLine);
        EXPECT_THAT(log_.Take(), ElementsAreArray(expected)) << row.text;
    }
    tools_.Check({"both are wrong", 0x1007, Ports(9, 0, 1, 1, 1, "80"), {}, -1});
    EXPECT_THAT(log_.Take(),
                ElementsAre("PortFilterManage: eInet 0 is not support", "PortFilterManage: eCmd 9 is invalid",
                            "ApidPortFilterManage: PortFilterManage error!"));
    tools_.Check({"no text", 0x100D, Number(1) + "02:00:00:00:00:0", {}, -1});
    EXPECT_THAT(log_.Take(), ElementsAre("ApidIpAndMacFilterListManage: the size is error:size=20",
                                         "IpMacFilterListManage: the text [] is invalid!",
                                         "ApidIpAndMacFilterListManage: IpRuleDel error!"));
    tools_.Check({"a family that is none fails as an empty line does", 0x1001, Network(3, 11, "", 8), {}, -1});
    EXPECT_THAT(log_.Take(), ElementsAre("IpFilterListManage: IpFilterListManage wSinFamily 11 is invalid!",
                                         "IpFilterListManage: achCmdBuf:  , del flag :0", "RuleCheck: not find - ",
                                         "ExecCmd: ", "IpFilterListManage: ExecCmd error!",
                                         "ApidIpFilterListManage: IpFilterListManage error!"));
    EXPECT_EQ(RuleCheck(nullptr), 0);
    EXPECT_EQ(AddArpEntry(nullptr), -1);
    EXPECT_EQ(DelArpEntry(nullptr), -1);
    EXPECT_THAT(log_.Take(), ElementsAre("RuleCheck: ExecCmd pchRule is NULL!", "AddArpEntry: ptArpInfo is null",
                                         "DelArpEntry: ptArpInfo is null"));
}

// Whole or not at all: no line is run with a text that was cut.
TEST_F(Firewall, TextsOfEveryLength) {
    const std::pair<u32, std::string> commands[] = {{0x1005, Chain(3, "")}, {0x1008, Number(3)}};
    for (const auto& [type, record] : commands) {
        for (const std::size_t length : {1U, 255U, 930U, 940U, 945U, 950U, 960U, 970U, 975U, 1000U, 3050U}) {
            const std::string text(length, 'x');
            const i32 status = tools_.Status(type, record + text);
            const Lines runs = tools_.TakeRuns();
            const bool ran = !runs.empty();
            EXPECT_THAT(runs, Each(HasSubstr(text))) << std::hex << type << std::dec << " length " << length;
            EXPECT_EQ(status, runs.size() == 2 ? 0 : -1) << std::hex << type << std::dec << " length " << length;
            EXPECT_TRUE(length > 930 ? length < 1000 || !ran : ran) << type << " length " << length;
        }
        const std::string name = kNames.at(type).function;
        EXPECT_THAT(log_.Take(), Contains(StartsWith(name + "the command is too long:")));
    }
}

// Of every command, also those whose record has a fixed size.
TEST_F(Firewall, PayloadsOfEveryLength) {
    AnswerTools([](const std::string&) { return ToolAnswer{.output = "", .status = 1}; });
    TesselDebugLevelSet(0);  // a log of all this would be large
    std::minstd_rand random(20261121);
    for (const auto& [type, names] : kNames) {
        for (std::size_t length = 0; length <= 3072; ++length) {
            std::string payload = Padded(Number(1), length);
            const bool isText = length % 2 == 0;
            for (std::size_t i = isText ? 4 : 0; i < length; ++i)
                payload[i] = isText ? 'x' : static_cast<char>(random());
            ASSERT_EQ(tools_.Status(type, payload), -1) << std::hex << type << std::dec << " length " << length;
        }
    }
}

}  // namespace
}  // namespace tessel::test
