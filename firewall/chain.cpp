#include "firewall/chain.h"

#include <cstring>

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "firewall/rule.h"

using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::kCommandFailed;
using tessel::RowsOf;
using tessel::Rule;
using tessel::RunChange;
using tessel::RunRule;

namespace {

// Every line this file runs that is not a rule: the program, then its argument vector.
constexpr char kCreate[] = "%s %s -t filter -N %s";
constexpr char kFlush[] = "%s %s -t filter -F %s";

constexpr char kPrograms[][10] = {"iptables", "ip6tables"};

// Its jump from INPUT is made together with the chain.
constexpr char kIcmpChain[] = "icmppacket";

// For preparations that may fail without keeping a list from being enabled. Readers of the log know both spellings.
constexpr char kNotCared[] = "ExecCmd error!but not care this!";
constexpr char kNotCaredBlank[] = "ExecCmd error! but not care this!";

// One list of one protocol. Short words are kept in the tables themselves: pointers to them would take more room.
struct FilterList {
    char program[10];
    char chain[10];
    char other[10];             // the list that it replaces
    char loopbackOperation[3];  // local traffic passes
    char loopbackMatch[16];
    bool endsInDrop;  // whoever is not on a white list is kept out
    const char* unhookFailure;
    const char* loopbackFailure;
};

constexpr FilterList kWhite[] = {
    {"iptables", "whitelist", "blacklist", "-I", " -s 127.0.0.0/8", true, kNotCared, kNotCared},
    // The one loopback rule that is appended. It still precedes the DROP rule, which is appended after it.
    {"ip6tables", "whitelist", "blacklist", "-A", " -s ::1/64", true, kNotCared, kNotCared},
};
constexpr FilterList kBlack[] = {
    {"iptables", "blacklist", "whitelist", "-I", " -s 127.0.0.0/8", false, kNotCaredBlank, kNotCaredBlank},
    {"ip6tables", "blacklist", "whitelist", "-I", " -s ::1/64", false, kNotCaredBlank, kNotCared},
};

// Adding a rule that already exists is a success.
i32 Apply(const Rule& rule, const char* failure, CallSite where) {
    return RunRule(rule, failure, nullptr, where).value_or(0);
}

i32 Flush(const char* program, const char* chain, const char* failure, CallSite where) {
    CommandLine line(where);
    if (!ComposeCommand(line, kFlush, program, program, chain)) return -1;
    return RunChange(line, {.name = "", .failure = failure});
}

i32 Enable(const FilterList& list, CallSite where) {
    (void)Apply({list.program, "-D", "INPUT", "", list.other}, list.unhookFailure, where);
    (void)Flush(list.program, list.other, kNotCared, where);
    (void)Apply({list.program, list.loopbackOperation, list.chain, list.loopbackMatch, "ACCEPT"}, list.loopbackFailure,
                where);
    if (list.endsInDrop && Apply({list.program, "-A", list.chain, "", "DROP"}, kCommandFailed, where) != 0) return -1;
    return Apply({list.program, "-I", "INPUT", "", list.chain}, kCommandFailed, where);
}

i32 Disable(const FilterList& list, CallSite where) {
    if (Apply({list.program, "-D", "INPUT", "", list.chain}, kCommandFailed, where) != 0) return -1;
    return Flush(list.program, list.chain, kCommandFailed, where);
}

// IPv4's list first; a failure ends it.
i32 SwitchLists(u32 listType, i32 (*change)(const FilterList&, CallSite), CallSite where) {
    if (!tessel::IsFilterType(listType)) {
        TESSEL_ERR_AT(where, "filter list %d not support!", static_cast<i32>(listType));
        return -1;
    }
    const auto& both = tessel::Refuses(listType) ? kBlack : kWhite;
    for (const FilterList& list : RowsOf(both, tessel::ProtocolsOf(listType))) {
        if (change(list, where) != 0) return -1;
    }
    return 0;
}

}  // namespace

i32 FilterEnable(u32 listType) {
    return SwitchLists(listType, &Enable, CallSite::Current());
}

i32 FilterDisable(u32 listType) {
    return SwitchLists(listType, &Disable, CallSite::Current());
}

i32 AddChain(u16 ipType, const char* name) {
    if (!tessel::IsLineWord(name)) return -1;
    const auto programs = RowsOf(kPrograms, ipType);
    if (programs.empty()) TESSEL_ERR("the protocol type %d is invalid!", ipType);
    i32 result = -1;
    for (const char* program : programs) {
        CommandLine line;
        result = ComposeCommand(line, kCreate, program, program, name) ? RunChange(line, {.name = ""}) : -1;
    }
    if (strcmp(name, kIcmpChain) != 0) return result;
    // For both protocols, whichever the chain was made for: if the other has no such chain, its jump fails.
    for (const char* program : kPrograms) {
        result = RunRule({program, "-I", "INPUT", "", name}).value_or(result);
    }
    return result;
}
