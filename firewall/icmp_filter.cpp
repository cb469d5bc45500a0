#include "firewall/icmp_filter.h"

#include "core/exec.h"
#include "core/log.h"
#include "firewall/rule.h"

using tessel::CallSite;
using tessel::Rule;

namespace {

constexpr char kChain[] = "icmppacket";

// Every line this file runs that is not a rule: the program, then its argument vector. The last one is the shell's.
constexpr char kFlush[] = "%s %s -F %s";
constexpr char kAnswerEchoes[] = "echo \"0\" > /proc/sys/net/ipv4/icmp_echo_ignore_all";

struct EchoFilter {
    char program[10];
    const char* match;  // ICMP type 8 (RFC 792), ICMPv6 type 128 (RFC 4443): echo request
    tessel::LogRule log;
    bool hasKernelSwitch;  // for IPv6 there is none before Linux 5.0
};

constexpr EchoFilter kEchoFilters[] = {
    {"iptables",
     " -p icmp --icmp-type 8",
     {"--log-prefix \"***ICMPPACKET***\"", "ExecCmd error! icmp rule add log record fail"},
     true},
    // With two blanks in front of the option, which the log shows and the tool does not see.
    {"ip6tables",
     " -p icmpv6 --icmpv6-type 128",
     {" --log-prefix \"***ICMPPACKETV6***\"", "ExecCmd error! icmpv6 rule add log record fail"},
     false},
};

i32 Flush(const char* program, CallSite where = CallSite::Current()) {
    tessel::CommandLine line(where);
    if (!tessel::ComposeCommand(line, kFlush, program, program, kChain)) return -1;
    return tessel::RunChange(line, {.name = ""});
}

}  // namespace

i32 IcmpFilterManage(u32 type) {
    if (!tessel::IsFilterType(type)) {
        TESSEL_ERR("icmp filter cmd %d not support!", static_cast<i32>(type));
        return -1;
    }
    const auto filters = tessel::RowsOf(kEchoFilters, tessel::ProtocolsOf(type));
    const bool isDrop = tessel::Refuses(type);
    i32 result = 0;
    for (const EchoFilter& filter : filters)
        result = Flush(filter.program);
    for (const EchoFilter& filter : filters) {
        const Rule rule{filter.program, "-I", kChain, filter.match, isDrop ? "DROP" : "RETURN"};
        // Not left to RunRule: this LOG rule is added even if the rule already exists, and ends up after it.
        if (isDrop) result = tessel::RunLogRule(rule, filter.log);
        result = tessel::RunRule(rule).value_or(result);
        if (isDrop || !filter.hasKernelSwitch) continue;
        if (tessel::RunShell(kAnswerEchoes) != 0) TESSEL_ERR("%s", kAnswerEchoes);
    }
    return result;
}
