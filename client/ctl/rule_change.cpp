// Changing rules, and the rules without conditions that bring a table into play. The daemon makes them for IPv4 only
// and tells none: the kernel is asked whether it happened.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "client/ctl/addresses.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/routes.h"
#include "client/ctl/rules.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

using Rules = std::vector<KernelRule>;
using Predicate = std::function<bool(const KernelRule&)>;

bool IsSame(const KernelRule& one, const KernelRule& other) {
    return one.preference == other.preference && one.source == other.source && one.mark == other.mark &&
           one.table == other.table && one.hasOtherConditions == other.hasOtherConditions;
}

const KernelRule* FirstOf(const Rules& rules, const Predicate& matches) {
    const auto found = std::find_if(rules.begin(), rules.end(), matches);
    return found == rules.end() ? nullptr : &*found;
}

// The first that matches and that the other list has fewer of: the kernel may have the same rule more than once.
const KernelRule* FirstBeyond(const Rules& rules, const Rules& other, const Predicate& matches) {
    return FirstOf(rules, [&](const KernelRule& rule) {
        const auto isSame = [&](const KernelRule& one) { return IsSame(one, rule); };
        return matches(rule) &&
               std::count_if(rules.begin(), rules.end(), isSame) > std::count_if(other.begin(), other.end(), isSame);
    });
}

// A change of one rule.
struct RuleChange {
    std::string asked;
    Predicate meant;    // the rule that is wanted, or is to go
    Predicate matched;  // what the kernel takes for it: the first of these goes
    int (*send)(const RuleChange& change);
    TNetIpRule record{};
    u32 table = 0;
};

Outcome Done(const KernelRule& rule, std::string_view what) {
    Outcome outcome;
    outcome.document = RuleJson(rule);
    outcome.done = fmt::format("{}   {}", RuleText(rule), what);
    return outcome;
}

Outcome NotReadBack(const RuleChange& change, const std::string& foreign) {
    Outcome outcome;
    // The same keys, and nothing known.
    outcome.document = RuleJson({});
    for (ordered_json& value : outcome.document)
        value = nullptr;
    outcome.done = change.asked + "   done";
    outcome.notes.push_back("not read back: " + foreign);
    return outcome;
}

Outcome AddRule(const RuleChange& change) {
    const Rules before = KernelRules(TESSEL_FAMILY_INET);
    const int error = change.send(change);
    const std::string foreign = ForeignKernel();
    const KernelRule* present = foreign.empty() ? FirstOf(before, change.meant) : nullptr;
    const std::string already = present == nullptr ? "" : "there is already " + RuleText(*present);
    if (error != TESSEL_OK) return CallFailed(change.asked, error, already);
    if (!foreign.empty()) return NotReadBack(change, foreign);
    const Rules after = KernelRules(TESSEL_FAMILY_INET);
    const KernelRule* added = FirstBeyond(after, before, change.meant);
    if (added == nullptr) return NotApplied(change.asked, "answered success, but no such rule was added");
    Outcome outcome = Done(*added, "added");
    if (!already.empty()) outcome.notes.push_back(already);
    return outcome;
}

Outcome DeleteRule(const RuleChange& change, const Options& options) {
    const Rules before = KernelRules(TESSEL_FAMILY_INET);
    const KernelRule* first = FirstOf(before, change.matched);
    if (first != nullptr && !change.meant(*first) && !options.force) {
        return Refused(change.asked, fmt::format("the kernel would delete {} (--force does it)", RuleText(*first)));
    }
    const int error = change.send(change);
    const std::string foreign = ForeignKernel();
    if (error != TESSEL_OK) {
        const bool isMissing = foreign.empty() && first == nullptr;
        return CallFailed(change.asked, error, isMissing ? "there is no such rule" : "");
    }
    if (!foreign.empty()) return NotReadBack(change, foreign);
    const Rules after = KernelRules(TESSEL_FAMILY_INET);
    const KernelRule* gone = FirstBeyond(before, after, change.matched);
    if (gone == nullptr) return NotApplied(change.asked, "answered success, but no rule is gone");
    return Done(*gone, "deleted");
}

// The numbers of a rule, each within what the wire carries. A problem is text, empty when there is none.
std::string ReadNumber(const Arguments& words, std::string_view key, u32 least, u32& number) {
    const auto word = words.Find(key);
    if (!word) return "";
    number = ParseNumber(*word).value_or(0);
    if (number >= least && number <= kNumberMax) return "";
    return fmt::format("{} is a number from {} to {}", key, least, kNumberMax);
}

RuleChange TableChange(const Invocation& invocation, std::string_view verb, int (*send)(const RuleChange& change)) {
    const u32 table = ParseNumber(invocation.words.Get("N")).value_or(0);
    const auto namesTable = [table](const KernelRule& rule) { return rule.table == table; };
    return {.asked = fmt::format("table {} {}", verb, table),
            .meant =
                [namesTable](const KernelRule& rule) {
                    return namesTable(rule) && rule.source.empty() && !rule.mark && !rule.hasOtherConditions;
                },
            .matched = namesTable,
            .send = send,
            .table = table};
}

std::optional<Failure> CheckTable(const RuleChange& change) {
    if (change.table != 0 && change.table <= kNumberMax) return std::nullopt;
    return Refused(change.asked, fmt::format("a table is a number from 1 to {}", kNumberMax));
}

Outcome WithTableNote(Outcome outcome, u32 table) {
    if (table >= kMainTable - 1 && table <= kMainTable + 1) {
        outcome.notes.push_back(
            fmt::format("table {} is one of the kernel's own (253 default, 254 main, 255 local)", table));
    }
    return outcome;
}

// From the words; text of what is wrong with them, empty: nothing.
std::string ReadRule(const Arguments& words, RuleChange& change) {
    u32 mark = 0;
    u32 preference = 0;
    u32 table = 0;
    for (const std::string& problem : {ReadNumber(words, "fwmark", 0, mark), ReadNumber(words, "pref", 1, preference),
                                       ReadNumber(words, "table", 1, table)}) {
        if (!problem.empty()) return problem;
    }
    TNetIpAddr source{};
    source.wSinFamily = TESSEL_FAMILY_INET;
    if (const auto typed = ParsePrefixedAddress(words.Get("from"))) source = *typed;
    if (source.wSinFamily != TESSEL_FAMILY_INET) return "the daemon makes and deletes IPv4 rules only";
    TNetIpRule& record = change.record;
    record.tSrcIpNet.wSinFamily = source.wSinFamily;
    memcpy(record.tSrcIpNet.abyAddr, source.abyAddr, sizeof(source.abyAddr));
    record.nPrefixLen = static_cast<i32>(source.dwPrefixLen);
    record.nPref = static_cast<i32>(preference);
    record.nTable = static_cast<i32>(table);
    record.nFwmark = static_cast<i32>(mark);
    const std::string network = record.nPrefixLen == 0 ? "" : NetworkText(record.tSrcIpNet, record.nPrefixLen);
    const bool namesWords = words.Has("from");
    const auto isMark = [mark](const KernelRule& rule) { return mark == 0 || rule.mark == mark; };
    change.meant = [=](const KernelRule& rule) {
        const bool isPreference = preference == 0 || rule.preference == preference;
        return isPreference && (!namesWords || (rule.source == network && isMark(rule) && rule.table == table));
    };
    // A preference is sent alone; the kernel compares no source of length 0.
    change.matched = [=](const KernelRule& rule) {
        if (preference != 0) return rule.preference == preference;
        return rule.table == table && isMark(rule) && (network.empty() || rule.source == network);
    };
    return "";
}

// The words as they were typed.
std::string AskedOf(const Arguments& words, std::string_view verb) {
    std::string asked = fmt::format("rule {}", verb);
    for (const char* key : {"from", "fwmark", "pref", "table"}) {
        if (const auto word = words.Find(key)) asked += fmt::format(" {} {}", key, *word);
    }
    return asked;
}

}  // namespace

Outcome TableAdd(const Invocation& invocation) {
    const RuleChange change =
        TableChange(invocation, "add", [](const RuleChange& one) { return tessel_route_table_add(one.table); });
    if (auto failure = CheckTable(change)) return std::move(*failure);
    return WithTableNote(AddRule(change), change.table);
}

Outcome TableDel(const Invocation& invocation) {
    const RuleChange change =
        TableChange(invocation, "del", [](const RuleChange& one) { return tessel_route_table_del(one.table); });
    if (auto failure = CheckTable(change)) return std::move(*failure);
    return WithTableNote(DeleteRule(change, invocation.options), change.table);
}

Outcome RuleAdd(const Invocation& invocation) {
    RuleChange change;
    change.asked = AskedOf(invocation.words, "add");
    change.send = [](const RuleChange& one) { return tessel_rule_add(&one.record); };
    const std::string problem = ReadRule(invocation.words, change);
    if (!problem.empty()) return Refused(change.asked, problem);
    // Added with exactly these words: a rule with a mark or further conditions is another one.
    change.meant = [words = change.meant, hasMark = change.record.nFwmark != 0](const KernelRule& rule) {
        return words(rule) && rule.mark.has_value() == hasMark && !rule.hasOtherConditions;
    };
    return AddRule(change);
}

Outcome RuleDel(const Invocation& invocation) {
    RuleChange change;
    change.asked = AskedOf(invocation.words, "del");
    change.send = [](const RuleChange& one) { return tessel_rule_del(&one.record); };
    const std::string problem = ReadRule(invocation.words, change);
    if (!problem.empty()) return Refused(change.asked, problem);
    return DeleteRule(change, invocation.options);
}

}  // namespace tessel::ctl
