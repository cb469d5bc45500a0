#include "route/rule.h"

#include "core/exec.h"
#include "core/log.h"
#include "route/clause.h"

using tessel::CallSite;
using tessel::Clause;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::NumberClause;
using tessel::RunChange;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kTableChange[] = "ip ip rule %s table %d";                        // "add" or "del"
constexpr char kRuleChange[] = "ip ip rule %s from %s/%d fwmark %d%s table %d";  // " pref N" is there or not
constexpr char kRuleDelByPref[] = "ip ip rule del pref %d";

i32 ChangeTable(const char* action, u32 table, CallSite where = CallSite::Current()) {
    CommandLine command(where);
    if (!ComposeCommand(command, kTableChange, action, static_cast<i32>(table))) return -1;
    return RunChange(command);
}

bool IsInet(const TNetIpRule& rule, CallSite where = CallSite::Current()) {
    if (rule.tSrcIpNet.wSinFamily == TESSEL_FAMILY_INET) return true;
    TESSEL_ERR_AT(where, "the tSrcIpNet wSinFamily %d is invalid!", rule.tSrcIpNet.wSinFamily);
    return false;
}

bool ComposeRule(CommandLine& command, const char* action, const TNetIpRule& rule) {
    const Clause pref = rule.nPref != 0 ? NumberClause("pref", rule.nPref) : Clause{};
    return ComposeCommand(command, kRuleChange, action, tessel::GatewayText(rule.tSrcIpNet).text, rule.nPrefixLen,
                          rule.nFwmark, pref.text, rule.nTable);
}

}  // namespace

i32 RouteTableAdd(u32 dwTable) {
    return ChangeTable("add", dwTable);
}

i32 RouteTableDel(u32 dwTable) {
    return ChangeTable("del", dwTable);
}

i32 IpRuleAdd(const TNetIpRule* ptNetIpRule) {
    CommandLine command;
    // For another family the line stays empty, and running that is the failure.
    if (IsInet(*ptNetIpRule) && !ComposeRule(command, "add", *ptNetIpRule)) return -1;
    return RunChange(command);
}

i32 IpRuleDel(const TNetIpRule* ptNetIpRule) {
    CommandLine command;
    if (IsInet(*ptNetIpRule)) {
        const bool isComposed = ptNetIpRule->nPref != 0 ? ComposeCommand(command, kRuleDelByPref, ptNetIpRule->nPref)
                                                        : ComposeRule(command, "del", *ptNetIpRule);
        if (!isComposed) return -1;
    }
    return RunChange(command);
}
