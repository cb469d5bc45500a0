// The firewall: what is run and logged when a rule is absent, when it is there, and when one of the lines fails.
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

using Lines = std::vector<std::string>;

// One line that is run. What stands in front of it says what becomes of it:
//   '.' its failure is ignored    '!' its failure ends the command with -1    '=' its result is the reply's, so far
//   ' ' it is run always    '?' only when a check does not find it    '$' the same, and finding it ends the command
//   '+' it is a LOG rule, run when the next line is, after that one's check    's' it is run by the shell
// Behind " # " stands what is logged when it fails, if not "ExecCmd error!".
struct Step {
    explicit Step(const std::string& text) : result(text[0]), when(text[1]) {
        const std::size_t end = text.find(" # ");
        if (end != std::string::npos) failure = text.substr(end + 3);
        line = text.substr(2, end - 2);
        program = line.substr(0, line.find(' '));
        logged = program + " " + line;
        // Tools see a run of blanks as one separator.
        if (line.find("  ") != std::string::npos) line.erase(line.find("  "), 1);
        check = line;
        check[check.find('-') + 1] = 'C';
    }
    std::string program, line, check, logged, failure = "ExecCmd error!";
    char result, when;
};

std::string Replaced(std::string text, std::initializer_list<std::pair<std::string, std::string>> words) {
    for (const auto& [word, with] : words) {
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + with.size()))
            text.replace(at, word.size(), with);
    }
    return text;
}

// The same for IPv6.
std::string V6(const std::string& steps) {
    return Replaced(steps, {{"iptables", "ip6tables"},
                            {"-I whitelist -s 127.0.0.0/8", "-A whitelist -s ::1/64"},
                            {"-s 127.0.0.0/8 -j ACCEPT # ExecCmd error! ", "-s ::1/64 -j ACCEPT # ExecCmd error!"},
                            {"MACFILTER", "MACV6"},
                            {"mac rule", "v6 mac rule"},
                            {"-p icmp --icmp-type 8", "-p icmpv6 --icmpv6-type 128"},
                            {"LOG --log-prefix \"***ICMPPACKET", "LOG  --log-prefix \"***ICMPPACKETV6"},
                            {"icmp rule", "icmpv6 rule"}});
}

// In whose name a command logs, and what its handler logs of a failure.
const std::map<u32, std::pair<std::string, std::string>> kNames = {
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
    Outcome(u32 type, const std::vector<Step>& steps, bool isPresent, const Step* failing) {
        const auto& [function, handlerLine] = kNames.at(type);
        // The rule of an IP filter is logged in words of its own, before anything is run.
        const bool isIpFilter = type == 0x1001;
        const std::string& last = steps.back().logged;
        const char* const isDel = last.find(" -D ") != std::string::npos ? "1" : "0";
        if (isIpFilter) log = {function + "achCmdBuf: " + last + " , del flag :" + isDel};
        const Step* logRule = nullptr;
        for (const Step& step : steps) {
            if (step.when == '+') {
                logRule = &step;
                continue;
            }
            if (step.when == '?' || step.when == '$') {
                runs.push_back(step.check);
                log.emplace_back("RuleCheck: use check option");
                if (isPresent && step.when == '$') break;
                if (isPresent) continue;
                for (const std::string& text : {step.logged, "Bad rule"s, "the rule not exist"s})
                    log.push_back("RuleCheck: " + text);
            }
            for (const Step* run : {std::exchange(logRule, nullptr), &step}) {
                if (run == nullptr) continue;
                runs.push_back(run->line);
                const bool isShell = run->when == 's';
                if (!isShell && (!isIpFilter || run != &step)) log.push_back(function + "achCmdBuf: " + run->logged);
                if (run != failing) continue;
                if (!isShell) log.insert(log.end(), {"ExecCmd: " + run->program, "ExecCmd: no"});
                log.push_back(function + run->failure);
            }
            if (step.result == '=' || (step.result == '!' && &step == failing)) status = &step == failing ? -1 : 0;
            if (step.result == '!' && status != 0) break;
        }
        if (status != 0 && !handlerLine.empty()) log.push_back(handlerLine);
    }
    Lines runs, log;
    i32 status = 0;
};

class Firewall : public testing::Test {
  protected:
    // With every rule there and with none, and each time with each line failing in turn.
    void Check(std::initializer_list<std::tuple<u32, std::string, std::string>> rows) {
        for (const auto& [type, request, lines] : rows) {
            std::vector<Step> steps;
            for (const std::string& text : Split(lines.substr(0, lines.size() - 1), "\n"))
                steps.emplace_back(text);
            for (const bool isPresent : {true, false}) {
                for (const Step& step : steps)
                    tools_.Answer(step.check, "Bad rule", isPresent ? 0 : 1);
                for (std::size_t failing = 0; failing <= steps.size(); ++failing) {
                    const Step* const step = failing < steps.size() ? &steps[failing] : nullptr;
                    const std::string line = step != nullptr ? step->line : "nothing";
                    const std::string what = lines + (isPresent ? "present" : "absent") + ", failing: " + line;
                    const Outcome expected(type, steps, isPresent, step);
                    tools_.Answer(line, "no", 1);
                    Expect(what, type, request, expected.runs, expected.status, expected.log);
                    tools_.Answer(line, "", 0);
                }
            }
        }
    }

    // One request, and all that it leaves behind.
    void Expect(const std::string& what, u32 type, const std::string& request, const Lines& runs, i32 status,
                const Lines& log) {
        EXPECT_EQ(tools_.Status(type, request), status) << what;
        EXPECT_EQ(tools_.TakeRuns(), runs) << what;
        EXPECT_EQ(tools_.TakeLines(), log) << what;
    }

    LoggedTools tools_{4};
};

std::string Chain(u16 protocols, const std::string& name) {
    return std::string(Bytes(protocols)) + name;
}

// An entry of a list; 0xee lies in what is not read.
std::string Network(u32 operation, u16 family, const char* start, u32 prefix, const char* end = "") {
    const std::string gap(24, '\xee');
    const auto bytes = [](const char* address) { return std::string(Bytes(Address(address).abyAddr)); };
    return Number(operation) + gap.substr(0, 4) + Number(family) + bytes(start) + Number(prefix) + gap.substr(0, 16) +
           bytes(end) + gap;
}

std::string Ports(u32 operation, u32 inet, u32 protocol, u32 portType, u32 action, const char* ports) {
    return Number(operation) + Number(inet) + Number(protocol) + Number(portType) + Number(action) + Padded(ports, 136);
}

std::string Arp(const char* device, const char* mac, const char* ip) {
    return Padded(device, 16) + Padded(mac, 32) + Padded(ip, 64);
}

constexpr char kMac[] = "02:00:00:00:00:09";

TEST_F(Firewall, ListsAreSwitched) {
    const std::string white = R"(. iptables -D INPUT -j blacklist # ExecCmd error!but not care this!
. iptables -t filter -F blacklist # ExecCmd error!but not care this!
.?iptables -I whitelist -s 127.0.0.0/8 -j ACCEPT # ExecCmd error!but not care this!
!?iptables -A whitelist -j DROP
!?iptables -I INPUT -j whitelist
)";
    const std::string black = R"(. iptables -D INPUT -j whitelist # ExecCmd error! but not care this!
. iptables -t filter -F whitelist # ExecCmd error!but not care this!
.?iptables -I blacklist -s 127.0.0.0/8 -j ACCEPT # ExecCmd error! but not care this!
!?iptables -I INPUT -j blacklist
)";
    const std::string noWhite = "! iptables -D INPUT -j whitelist\n! iptables -t filter -F whitelist\n";
    const std::string noBlack = Replaced(noWhite, {{"white", "black"}});
    for (const auto& [type, first, second] :
         {std::tuple{0x1003U, white, black}, std::tuple{0x1004U, noWhite, noBlack}}) {
        Check({{type, Number(1), first},
               {type, Number(2), second},
               {type, Number(3), V6(first)},
               {type, Number(4), V6(second)},
               {type, Number(5), first + V6(first)},
               {type, Number(6), second + V6(second)}});
    }
}

TEST_F(Firewall, ChainsArpEntriesAndFiles) {
    const std::string path = "/usr/rules";
    const std::string save = "= iptables-save > /usr/rules-4\n";
    const std::string restore = "= iptables-restore < /usr/rules-4\n= ip6tables-restore < /usr/rules-6\n";
    Check({
        {0x1005, Chain(1, "mine"), "= iptables -t filter -N mine\n"},
        {0x1005, Chain(2, "mine\0x"s), "= ip6tables -t filter -N mine\n"},
        {0x1005, Chain(3, "a"), "= iptables -t filter -N a\n= ip6tables -t filter -N a\n"},
        {0x1005, Chain(1, "icmppacket"),
         "= iptables -t filter -N icmppacket\n=?iptables -I INPUT -j icmppacket\n"
         "=?ip6tables -I INPUT -j icmppacket\n"},
        {0x100A, Arp("", kMac, "10.0.0.9"), "! arp -s 10.0.0.9 02:00:00:00:00:09\n"},
        {0x100A, Arp("eth1", kMac, "10.0.0.9"), "! arp -s -i eth1 10.0.0.9 02:00:00:00:00:09\n"},
        {0x100B, Arp("", "-x y", "10.0.0.9"), "! arp -d 10.0.0.9\n"},
        {0x100B, Arp("eth1", "", "10.0.0.9"), "! arp -d 10.0.0.9 -i eth1\n"},
        {0x1008, Number(1) + path, save},
        {0x1008, Number(3) + path, save + "= ip6tables-save > /usr/rules-6\n"},
        {0x1009, Number(2) + path, restore.substr(restore.find('\n') + 1)},
        {0x1009, Number(3) + path, restore},
    });
}

// One entry of a list. On the white list it is a rule, on the black list (3 and 4) one with its LOG rule, of which
// `prefix` and `text` are logged. `tool` has the option that adds to the black list.
std::string Entry(u32 operation, std::string tool, const std::string& match, const char* prefix, const char* text) {
    if (operation != 3) tool.replace(tool.size() - 1, 1, operation == 1 ? "I" : "D");
    const std::string when = operation % 2 == 1 ? "!?" : "! ";
    if (operation <= 2) return when + tool + " whitelist" + match + " -j RETURN\n";
    const std::string rule = tool + " blacklist" + match + " -j ";
    return ".+" + rule + "LOG --log-prefix \"***" + prefix + "***\" --log-level notice # ExecCmd error! " + text +
           "\n" + when + rule + "DROP\n";
}

TEST_F(Firewall, EntriesOfTheLists) {
    const std::string from = " -m mac --mac-source 02:00:00:00:00:09";
    for (const u32 op : {1U, 2U, 3U, 4U}) {
        const auto ip = [&](const std::string& match) {
            const bool isV6 = match.find(':') != std::string::npos;
            return isV6 ? Entry(op, "ip6tables -A", match, "BLACKLISTV6", "ip rule add log record fail")
                        : Entry(op, "iptables -A", match, "BLACKLIST", "ip rule add log record fail");
        };
        const auto mac = [&](const std::string& match) {
            return Entry(op, "iptables -I", match + from, "MACFILTER", "mac rule log record add or del fail");
        };
        const std::string gap = op == 1 ? " " : "";  // two blanks in front
        Check({
            {0x1001, Network(op, 2, "192.168.1.0", 24), ip(" -s 192.168.1.0/24")},
            {0x1001, Network(op, 2, "192.168.1.0", 9, "192.168.1.20"),
             ip(" -m iprange --src-range 192.168.1.0-192.168.1.20")},
            {0x1001, Network(op, 10, "2001:db8::", 32), ip(" -s 2001:db8::/32")},
            {0x1001, Network(op, 10, "2001:db8::", 9, "2001:db9::"),
             ip(" -m iprange --src-range 2001:db8::-2001:db9::")},
            {0x1002, Number(op) + kMac, mac("") + V6(mac(""))},
            {0x100D, Number(op) + kMac + "10.0.0.9", mac(" -s 10.0.0.9/32")},
            {0x100D, Number(op) + kMac + "fe80::9", V6(mac(" -s fe80::9/32" + gap))},
        });
    }
    // A check that dies of a signal, whose status is 0 as well, has found nothing.
    const std::string check = "iptables -C whitelist" + from + " -j RETURN";
    tools_.Answer(check, "", 0, true);
    EXPECT_EQ(tools_.Status(0x1002, Number(1) + kMac), 0);
    EXPECT_THAT(tools_.TakeRuns(), testing::Contains(Replaced(check, {{"-C", "-I"}})));
}

// One rule for ports, added or deleted, with its LOG rule.
std::string PortRule(const std::string& when, const std::string& rule, const char* target, const char* text = "") {
    const char* const prefix = rule.starts_with("ip6") ? "***PORTFILTERV6***" : "***PORTFILTER***";
    return ".+" + rule + " -j LOG --log-prefix \"" + prefix + "\" --log-level notice # ExecCmd error!" + text +
           "port filter rule log record add fail!\n" + when + rule + " -j " + target +
           " # ExecCmd error! but not care this!\n";
}

TEST_F(Firewall, EchoRequestsAndPorts) {
    const std::string flush = "= iptables -F icmppacket\n";
    const std::string allow = "=?iptables -I icmppacket -p icmp --icmp-type 8 -j RETURN\n";
    const std::string answer =
        Replaced(".ssh -c ECHO # ECHO\n", {{"ECHO", "echo \"0\" > /proc/sys/net/ipv4/icmp_echo_ignore_all"}});
    const std::string drop = R"(= iptables -I icmppacket -p icmp --icmp-type 8 -j LOG --log-prefix "***ICMPPACKET***")"
                             " --log-level notice # ExecCmd error! icmp rule add log record fail\n"
                             "=?iptables -I icmppacket -p icmp --icmp-type 8 -j DROP\n";
    const std::string tcp = "tables -A INPUT -p tcp -m multiport --dport 80,443";
    const std::string udp = "tables -A INPUT -p udp -m multiport --dport 80,443";
    Check({
        {0x1006, Number(1), flush + allow + answer},
        {0x1006, Number(2), flush + drop},
        {0x1006, Number(3), V6(flush + allow)},
        {0x1006, Number(4), V6(flush + drop)},
        {0x1006, Number(5), flush + V6(flush) + allow + answer + V6(allow)},
        {0x1006, Number(6), flush + V6(flush) + drop + V6(drop)},
        {0x1007, Ports(1, 3, 0, 2, 2, "80,443"),
         PortRule("=?", "ip" + tcp, "DROP", "tcp ") + PortRule("=?", "ip" + udp, "DROP", " udp ") +
             PortRule("=$", "ip6" + tcp, "DROP", "tcp ") + PortRule("=$", "ip6" + udp, "DROP", " udp ")},
        {0x1007, Ports(1, 1, 1, 1, 1, "ssh"), PortRule("=?", "iptables -A INPUT -p tcp  --sport ssh", "RETURN")},
        {0x1007, Ports(1, 2, 2, 2, 4, "53"), PortRule("=$", "ip6tables -A OUTPUT -p udp  --dport 53", "DROP")},
        {0x1007, Ports(2, 1, 2, 2, 3, "5"), PortRule("= ", "iptables -D OUTPUT -p udp  --dport 5", "RETURN")},
    });
    // What is there already does not hide that another rule failed.
    for (const char* operation : {"-C", "-A"})
        tools_.Answer(Replaced("ip" + tcp + " -j DROP", {{"-A", operation}}), "", 1);
    tools_.Answer(Replaced("ip" + udp + " -j DROP", {{"-A", "-C"}}), "", 0);
    EXPECT_EQ(tools_.Status(0x1007, Ports(1, 1, 0, 2, 2, "80,443")), -1);
}

TEST_F(Firewall, WhatMakesNoSenseRunsNothing) {
    // With the lines of the log, in the command's name where they bear none.
    const std::tuple<u32, std::string, const char*> rows[] = {
        {0x1003, "", "filter list 0 not support!"},
        {0x1001, Network(5, 2, "10.0.0.0", 8), "cmd 5 is not support"},
        {0x1002, Number(0) + kMac, "cmd 0 is not support"},
        {0x1002, Number(1) + "02:00 -j ACCEPT", "the text [02:00 -j ACCEPT] is invalid!"},
        {0x100D, Number(1) + kMac + "fe80::1%eth0", "the text [fe80::1%eth0] is invalid!"},
        {0x100D, Number(1) + "02:00:00:00:00:0x::1", "the text [02:00:00:00:00:0x] is invalid!"},
        {0x1005, Chain(3, "-F"), "the text [-F] is invalid!"},
        {0x1005, Chain(4, "mine"), "the protocol type 4 is invalid!"},
        {0x1006, Number(7), "icmp filter cmd 7 not support!"},
        {0x1007, Ports(1, 1, 1, 3, 1, "80"), "ePortType 3 is not support"},
        {0x1007, Ports(1, 1, 1, 2, 5, "80"), "ePortType 2 is not support"},
        {0x1007, Ports(1, 1, 1, 1, 1, "80 -j ACCEPT"), "the text [80 -j ACCEPT] is invalid!"},
        {0x1008, Number(3) + "-M/tmp/evil", "the text [-M/tmp/evil] is invalid!"},
        {0x1009, Number(0) + "/usr/rules", "the protocol type 0 is invalid!"},
        {0x100A, Arp("", kMac, ""), " ip or mac is null"},
        {0x100A, Arp("", kMac, "fe80::1"), "the text [fe80::1] is invalid!"},
        {0x100A, Arp("", "pub", "10.0.0.9"), "the text [pub] is invalid!"},
        {0x100A, Arp("eth0 x", kMac, "10.0.0.9"), "the interface name [eth0 x] is invalid!"},
        {0x100B, Arp("", kMac, "localhost"), "the text [localhost] is invalid!"},
        {0x100B, Arp("-a", "", "10.0.0.9"), "the interface name [-a] is invalid!"},
        {0x1007, Ports(9, 0, 1, 1, 1, "80"), "eInet 0 is not support; eCmd 9 is invalid"},
        {0x100D, Number(1) + "02:00:00:00:00:0",
         "ApidIpAndMacFilterListManage: the size is error:size=20; the text [] is invalid!"},
        // A family that is none fails as an empty line does.
        {0x1001, Network(3, 11, "", 8),
         "IpFilterListManage wSinFamily 11 is invalid!; IpFilterListManage: achCmdBuf:  , del flag :0; "
         "RuleCheck: not find - ; ExecCmd: ; ExecCmd error!"},
    };
    for (const auto& [type, request, lines] : rows) {
        const auto& [function, handlerLine] = kNames.at(type);
        Lines expected = Split(lines);
        for (std::string& line : expected)
            line.insert(0, line.find(": ") == std::string::npos ? function : "");
        if (!handlerLine.empty()) expected.push_back(handlerLine);
        Expect(lines, type, request, {}, -1, expected);
    }
}

// Whole or not at all: no line is run with a text that was cut.
TEST_F(Firewall, TextsOfEveryLength) {
    for (const auto& [type, record] : {std::pair{0x1005U, Chain(3, "")}, std::pair{0x1008U, Number(3)}}) {
        i32 status = 0;
        for (std::size_t length = 930; length <= 1000; length += 5) {
            const std::string text(length, 'x');
            status = tools_.Status(type, record + text);
            const Lines runs = tools_.TakeRuns();
            EXPECT_THAT(runs, testing::Each(HasSubstr(text))) << length;
            EXPECT_TRUE(status == (runs.size() == 2 ? 0 : -1) && (length > 930 || status == 0)) << length;
        }
        EXPECT_EQ(status, -1) << type;
        const std::string line = kNames.at(type).first + "the command is too long:";
        EXPECT_THAT(tools_.TakeLines(), testing::Contains(testing::StartsWith(line)));
    }
}

}  // namespace
}  // namespace tessel::test
