#include "firewall/filter_list.h"

#include <cstring>

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "firewall/rule.h"
#include "firewall/word.h"

using tessel::AddressText;
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
// For an entry added to the IPv6 white list: with two blanks, which the log shows and the tool does not see.
constexpr char kIpMacWhiteAddV6[] = " -s %s/32  -m mac --mac-source %s";

struct Operation {
    char ipWord[3];   // for entries without a MAC
    char macWord[3];  // for entries with one
    char chain[10];
    char target[7];
    bool isLogged;
};

// By TESSEL_LIST_... White entries are inserted, because the chain ends in a DROP rule. A black entry's rules are added
// LOG rule first: inserted ones end up in reverse order, so that what a MAC entry drops is not logged.
constexpr Operation kOperations[] = {
    {"-I", "-I", "whitelist", "RETURN", false},
    {"-D", "-D", "whitelist", "RETURN", false},
    {"-A", "-I", "blacklist", "DROP", true},
    {"-D", "-D", "blacklist", "DROP", true},
};

// Null, with a log line, for an unknown code.
const Operation* FindOperation(u32 code, CallSite where = CallSite::Current()) {
    const Operation* found = tessel::FindRow(kOperations, code);
    if (found == nullptr) TESSEL_ERR_AT(where, "cmd %d is not support", static_cast<i32>(code));
    return found;
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

// For entries with a MAC.
i32 Manage(const ListKind& list, const Operation& operation, const CommandLine& match) {
    const Rule rule{list.program, operation.macWord, operation.chain, match.text, operation.target};
    const LogRule* log = operation.isLogged ? &list.log : nullptr;
    return tessel::RunRule(rule, tessel::kCommandFailed, log, match.where).value_or(0);
}

// For entries without a MAC. Unlike that of others, the line is logged with a flag, and also if its rule already
// exists.
i32 RunIpRule(const Rule& rule, const CommandLine& line, const LogRule* log) {
    const bool isDel = IsDeletion(rule);
    TESSEL_PRT_AT(line.where, "achCmdBuf: %s , del flag :%d", line.text, isDel ? 1 : 0);
    if (!isDel && RuleCheck(line.text) != 0) return 0;
    if (log != nullptr) (void)RunLogRule(rule, *log, line.where);  // the rule itself matters more
    if (Run(line) == 0) return 0;
    TESSEL_ERR_AT(line.where, "%s", tessel::kCommandFailed);
    return -1;
}

// An end address of zeros: the entry is a network.
bool ComposeIpMatch(CommandLine& match, const TNetIpFilter& entry) {
    const u16 family = entry.tStart.wSinFamily;
    const AddressText start(entry.tStart);
    const AddressText end(family, entry.tEnd.abyAddr);
    const char* none = family == TESSEL_FAMILY_INET ? "0.0.0.0" : "::";
    if (strcmp(end.text, none) != 0) return ComposeCommand(match, kRange, start.text, end.text);
    return ComposeCommand(match, kPrefix, start.text, static_cast<i32>(entry.dwPrefixLen));
}

}  // namespace

i32 IpFilterListManage(u32 operation, const TNetIpFilter& entry) {
    const Operation* found = FindOperation(operation);
    if (found == nullptr) return -1;
    const u16 family = entry.tStart.wSinFamily;
    const ListKind& list = kIpLists[family == TESSEL_FAMILY_INET6 ? 1 : 0];
    CommandLine match;
    CommandLine line;
    const Rule rule{list.program, found->ipWord, found->chain, match.text, found->target};
    if (tessel::FindFamily(family) == nullptr) {
        TESSEL_ERR("IpFilterListManage wSinFamily %d is invalid!", family);
        return RunIpRule(rule, line, nullptr);  // the empty line fails, and is logged, like any other
    }
    if (!ComposeIpMatch(match, entry) || !ComposeRule(line, rule)) return -1;
    return RunIpRule(rule, line, found->isLogged ? &list.log : nullptr);
}

i32 MacFilterListManage(u32 operation, const char* mac) {
    const Operation* found = FindOperation(operation);
    CommandLine match;
    if (found == nullptr || !tessel::IsMacWord(mac) || !ComposeCommand(match, kMac, mac)) return -1;
    for (const ListKind& list : kMacLists) {
        if (Manage(list, *found, match) != 0) return -1;
    }
    return 0;
}

i32 IpMacFilterListManage(u32 operation, const char* mac, const char* ip) {
    const Operation* found = FindOperation(operation);
    if (found == nullptr || !tessel::IsMacWord(mac)) return -1;
    const bool isInet6 = ip != nullptr && strchr(ip, ':') != nullptr;
    if (!tessel::IsAddressWord(isInet6 ? tessel::kInet6 : tessel::kInet, ip)) return -1;
    CommandLine match;
    const bool isComposed = isInet6 && operation == TESSEL_LIST_WHITE_ADD
                                ? ComposeCommand(match, kIpMacWhiteAddV6, ip, mac)
                                : ComposeCommand(match, kIpMac, ip, mac);
    return isComposed ? Manage(kMacLists[isInet6 ? 1 : 0], *found, match) : -1;
}
