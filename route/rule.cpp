#include "route/rule.h"

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "route/clause.h"

using tessel::AddressText;
using tessel::CallSite;
using tessel::Clause;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::RunChange;

namespace {

// Every line this file runs: the program, then its argument vector. " pref N" is optional.
constexpr char kTableAdd[] = "ip ip rule add table %d";
constexpr char kTableDel[] = "ip ip rule del table %d";
constexpr char kAdd[] = "ip ip rule add from %s/%d fwmark %d%s table %d";
constexpr char kDel[] = "ip ip rule del from %s/%d fwmark %d table %d";
constexpr char kDelByPref[] = "ip ip rule del pref %d";

bool IsInet(const TNetIpRule& rule, CallSite where = CallSite::Current()) {
    if (rule.tSrcIpNet.wSinFamily == TESSEL_FAMILY_INET) return true;
    TESSEL_ERR_AT(where, "the tSrcIpNet wSinFamily %d is invalid!", rule.tSrcIpNet.wSinFamily);
    return false;
}

}  // namespace

i32 RouteTableAdd(u32 dwTable) {
    CommandLine command;
    return ComposeCommand(command, kTableAdd, static_cast<i32>(dwTable)) ? RunChange(command) : -1;
}

i32 RouteTableDel(u32 dwTable) {
    CommandLine command;
    return ComposeCommand(command, kTableDel, static_cast<i32>(dwTable)) ? RunChange(command) : -1;
}

i32 IpRuleAdd(const TNetIpRule* ptNetIpRule) {
    const TNetIpRule& rule = *ptNetIpRule;
    const Clause pref = rule.nPref != 0 ? tessel::NumberClause("pref", rule.nPref) : Clause{};
    CommandLine command;
    // For another family the line stays empty, and running it fails.
    if (IsInet(rule) && !ComposeCommand(command, kAdd, AddressText(rule.tSrcIpNet).text, rule.nPrefixLen, rule.nFwmark,
                                        pref.text, rule.nTable)) {
        return -1;
    }
    return RunChange(command);
}

i32 IpRuleDel(const TNetIpRule* ptNetIpRule) {
    const TNetIpRule& rule = *ptNetIpRule;
    CommandLine command;
    if (IsInet(rule)) {
        const bool isComposed = rule.nPref != 0 ? ComposeCommand(command, kDelByPref, rule.nPref)
                                                : ComposeCommand(command, kDel, AddressText(rule.tSrcIpNet).text,
                                                                 rule.nPrefixLen, rule.nFwmark, rule.nTable);
        if (!isComposed) return -1;
    }
    return RunChange(command);
}
