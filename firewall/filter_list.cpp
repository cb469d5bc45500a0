#include "firewall/filter_list.h"

#include <arpa/inet.h>

#include <cstring>
#include <iterator>

#include "core/exec.h"
#include "core/log.h"
#include "firewall/rule.h"

using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::LogRule;
using tessel::Rule;

namespace {

// What entries match.
constexpr char kRange[] = " -m iprange --src-range %s-%s";
constexpr char kPrefix[] = " -s %s/%d";
constexpr char kMac[] = " -m mac --mac-source %s";
constexpr char kIpMac[] = " -s %s/32 -m mac --mac-source %s";
// Of the entry that is added to the IPv6 white list: with two blanks, which the log shows and the tool does not see.
constexpr char kIpMacWhiteAddV6[] = " -s %s/32  -m mac --mac-source %s";

struct Operation {
    char ipWord[3];   // for entries without a MAC
    char macWord[3];  // for entries with one
    char chain[10];
    char target[7];
    bool isLogged;
};

// By TESSEL_LIST_... White entries are inserted, because the chain ends in a DROP rule. A black entry's rules are added
// LOG rule first: inserted ones end up the other way round, so that what a MAC entry drops is not logged.
constexpr Operation kOperations[] = {
    {"-I", "-I", "whitelist", "RETURN", false},
    {"-D", "-D", "whitelist", "RETURN", false},
    {"-A", "-I", "blacklist", "DROP", true},
    {"-D", "-D", "blacklist", "DROP", true},
};

// Null, with a log line, for a code that is none.
const Operation* FindOperation(u32 code, CallSite where = CallSite::Current()) {
    if (code >= 1 && code <= std::size(kOperations)) return &kOperations[code - 1];
    TESSEL_ERR_AT(where, "cmd %d is not support", static_cast<i32>(code));
    return nullptr;
}

// One kind of list for one protocol.
struct ListKind {
    char program[10];
    LogRule log;
};

constexpr char kIpLogFailure[] = "ExecCmd error! ip rule add log record fail";

constexpr ListKind kIpLists[] = {
    {"iptables", {"--log-prefix \"***BLACKLIST***\"", kIpLogFailure}},
    {"ip6tables", {"--log-prefix \"***BLACKLISTV6***\"", kIpLogFailure}},
};
constexpr ListKind kMacLists[] = {
    {"iptables", {"--log-prefix \"***MACFILTER***\"", "ExecCmd error! mac rule log record add or del fail"}},
    {"ip6tables", {"--log-prefix \"***MACV6***\"", "ExecCmd error! v6 mac rule log record add or del fail"}},
};

i32 Manage(const ListKind& list, const Operation& operation, const Rule& rule, CallSite where = CallSite::Current()) {
    const LogRule* log = operation.isLogged ? &list.log : nullptr;
    return tessel::RunRule(rule, tessel::kCommandFailed, log, where).value_or(0);
}

// An end address of zeros: the entry is a network.
bool ComposeIpMatch(CommandLine& match, const TNetIpFilter& entry) {
    const u16 family = entry.tStart.wSinFamily;
    char start[INET6_ADDRSTRLEN] = "";
    char end[INET6_ADDRSTRLEN] = "";
    (void)inet_ntop(family, entry.tStart.abyAddr, start, sizeof(start));
    (void)inet_ntop(family, entry.tEnd.abyAddr, end, sizeof(end));
    const char* none = family == TESSEL_FAMILY_INET ? "0.0.0.0" : "::";
    if (strcmp(end, none) != 0) return ComposeCommand(match, kRange, start, end);
    return ComposeCommand(match, kPrefix, start, static_cast<i32>(entry.dwPrefixLen));
}

}  // namespace

i32 IpFilterListManage(u32 operation, const TNetIpFilter& entry) {
    const Operation* found = FindOperation(operation);
    if (found == nullptr) return -1;
    const u16 family = entry.tStart.wSinFamily;
    const bool isKnown = family == TESSEL_FAMILY_INET || family == TESSEL_FAMILY_INET6;
    const ListKind& list = kIpLists[family == TESSEL_FAMILY_INET6 ? 1 : 0];
    CommandLine match;
    CommandLine line;  // stays empty for a family that is none: it then fails, and is logged, like any other
    if (!isKnown) TESSEL_ERR("IpFilterListManage wSinFamily %d is invalid!", family);
    if (isKnown && !ComposeIpMatch(match, entry)) return -1;
    const Rule rule{list.program, found->ipWord, found->chain, match.text, found->target};
    if (isKnown && !tessel::ComposeRule(line, rule)) return -1;
    TESSEL_PRT("achCmdBuf: %s , del flag :%d", line.text, strcmp(rule.operation, "-D") == 0 ? 1 : 0);
    return isKnown ? Manage(list, *found, rule) : tessel::RunLine(line, tessel::kCommandFailed);
}

i32 MacFilterListManage(u32 operation, const char* mac) {
    const Operation* found = FindOperation(operation);
    CommandLine match;
    if (found == nullptr || !tessel::IsRuleWord(mac) || !ComposeCommand(match, kMac, mac)) return -1;
    for (const ListKind& list : kMacLists) {
        const Rule rule{list.program, found->macWord, found->chain, match.text, found->target};
        if (Manage(list, *found, rule) != 0) return -1;
    }
    return 0;
}

i32 IpMacFilterListManage(u32 operation, const char* mac, const char* ip) {
    const Operation* found = FindOperation(operation);
    if (found == nullptr || !tessel::IsRuleWord(mac) || !tessel::IsRuleWord(ip)) return -1;
    const bool isInet6 = strchr(ip, ':') != nullptr;
    const ListKind& list = kMacLists[isInet6 ? 1 : 0];
    CommandLine match;
    const bool isComposed = isInet6 && operation == TESSEL_LIST_WHITE_ADD
                                ? ComposeCommand(match, kIpMacWhiteAddV6, ip, mac)
                                : ComposeCommand(match, kIpMac, ip, mac);
    if (!isComposed) return -1;
    const Rule rule{list.program, found->macWord, found->chain, match.text, found->target};
    return Manage(list, *found, rule);
}
