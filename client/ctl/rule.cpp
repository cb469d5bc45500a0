// Rules, and the rules without conditions that bring a table into play. The daemon makes them for IPv4 only and reports
// none: the kernel is asked whether it happened.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

using Predicate = std::function<bool(const Json& rule)>;

// "pref 30 from 192.168.1.0/24 fwmark 0x10 table 100"
std::string RuleText(const Json& rule) {
    std::string text = Format("pref {} from {}", NumberOf(rule, "pref"), TextOf(rule, "from"));
    if (!rule.at("fwmark").is_null()) text += Format(" fwmark {:#x}", NumberOf(rule, "fwmark"));
    if (rule.at("other_conditions") == true) text += " and more";
    return NumberOf(rule, "table") == 0 ? text : Format("{} table {}", text, NumberOf(rule, "table"));
}

Json FirstThat(const Json& rules, const Predicate& matches) {
    const auto found = std::find_if(rules.begin(), rules.end(), matches);
    return found == rules.end() ? Json() : *found;
}

// The first that matches and that the other list has fewer of: the kernel may have the same rule more than once.
Json FirstBeyond(const Json& rules, const Json& other, const Predicate& matches) {
    return FirstThat(rules, [&](const Json& rule) {
        return matches(rule) &&
               std::count(rules.begin(), rules.end(), rule) > std::count(other.begin(), other.end(), rule);
    });
}

// What is read back is the rule that came or went; null: none did, or the kernel's answer says nothing.
Outcome PerformRule(const Invocation& invocation, Change change, const Json& before, const Predicate& meant,
                    bool isAdded) {
    change.readsKernel = true;
    change.read = [&] {
        const Json after = KernelRules(TESSEL_FAMILY_INET);
        return isAdded ? FirstBeyond(after, before, meant) : FirstBeyond(before, after, meant);
    };
    change.wrong = [&](const Json& rule) {
        if (!rule.is_null()) return "";
        return isAdded ? "no such rule was added" : "no rule is gone";
    };
    Outcome outcome = Perform(invocation, change);
    outcome.done = outcome.document.is_null() ? invocation.asked + "   done"
                                              : RuleText(outcome.document) + (isAdded ? "   added" : "   deleted");
    return outcome;
}

Outcome AddRule(const Invocation& invocation, const std::function<int()>& send, const Predicate& meant) {
    const Json before = KernelRules(TESSEL_FAMILY_INET);
    const Json present = FirstThat(before, meant);
    const std::string already = present.is_null() ? "" : "there is already " + RuleText(present);
    Change change{.send = send};
    change.cause = [&] { return ForeignKernel().empty() ? already : ""; };
    Outcome outcome = PerformRule(invocation, std::move(change), before, meant, true);
    if (!already.empty() && ForeignKernel().empty()) outcome.notes.push_back(already);
    return outcome;
}

// `matched` is what the kernel takes for the rule that is meant: the first of these goes.
Outcome DeleteRule(const Invocation& invocation, const std::function<int()>& send, const Predicate& meant,
                   const Predicate& matched) {
    const Json before = KernelRules(TESSEL_FAMILY_INET);
    const Json first = FirstThat(before, matched);
    Change change{.send = send};
    change.guard = [&] { return first.is_null() || meant(first) ? "" : "the kernel would delete " + RuleText(first); };
    change.cause = [&] { return first.is_null() && ForeignKernel().empty() ? "there is no such rule" : ""; };
    return PerformRule(invocation, std::move(change), before, matched, false);
}

Outcome WithTableNote(Outcome outcome, u32 table) {
    if (table >= kMainTable - 1 && table <= kMainTable + 1)
        outcome.notes.push_back(
            Format("table {} is one of the kernel's own (253 default, 254 main, 255 local)", table));
    return outcome;
}

// The catch-all rule of a table.
Predicate OfTable(u32 table) {
    return [table](const Json& rule) {
        return NumberOf(rule, "table") == table && rule.at("from") == "all" && rule.at("fwmark").is_null() &&
               rule.at("other_conditions") == false;
    };
}

Outcome AddTable(const Invocation& invocation) {
    const auto table = invocation.words.Get<u32>("N");
    return WithTableNote(AddRule(
                             invocation, [&] { return tessel_route_table_add(table); }, OfTable(table)),
                         table);
}

Outcome DelTable(const Invocation& invocation) {
    const auto table = invocation.words.Get<u32>("N");
    const Predicate matched = [&](const Json& rule) { return NumberOf(rule, "table") == table; };
    return WithTableNote(DeleteRule(
                             invocation, [&] { return tessel_route_table_del(table); }, OfTable(table), matched),
                         table);
}

Outcome ShowRule(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = KernelRules(FamilyOf(invocation.options));
    return outcome;
}

// The rule that the words describe.
struct MeantRule {
    explicit MeantRule(const Invocation& invocation)
        : namesWords(invocation.words.Has("from")),
          mark(invocation.words.Get<u32>("fwmark", 0)),
          preference(invocation.words.Get<u32>("pref", 0)),
          table(invocation.words.Get<u32>("table", 0)) {
        const auto source = invocation.words.Get<Network>("from", Network{.family = TESSEL_FAMILY_INET});
        if (source.family != TESSEL_FAMILY_INET)
            throw Refused(invocation.asked, "the daemon makes and deletes IPv4 rules only");
        if (source.length != 0) network = NetworkText(source);
        record.tSrcIpNet = GatewayOf(source);
        record.nPrefixLen = static_cast<i32>(source.length);
        record.nPref = static_cast<i32>(preference);
        record.nTable = static_cast<i32>(table);
        record.nFwmark = static_cast<i32>(mark);
    }
    [[nodiscard]] bool IsMark(const Json& rule) const {
        return mark == 0 || rule.at("fwmark") == mark;
    }
    [[nodiscard]] bool IsWords(const Json& rule) const {
        return (preference == 0 || rule.at("pref") == preference) &&
               (!namesWords || (rule.at("from") == network && IsMark(rule) && rule.at("table") == table));
    }
    // A preference is sent alone; the kernel compares no source of length 0.
    [[nodiscard]] bool IsMatched(const Json& rule) const {
        if (preference != 0) return rule.at("pref") == preference;
        return rule.at("table") == table && IsMark(rule) && (network == "all" || rule.at("from") == network);
    }

    bool namesWords;
    u32 mark;
    u32 preference;
    u32 table;
    std::string network = "all";
    TNetIpRule record{};
};

Outcome AddRule(const Invocation& invocation) {
    const MeantRule meant(invocation);
    // With exactly these words: a rule with a mark or further conditions is another one.
    return AddRule(
        invocation, [&] { return tessel_rule_add(&meant.record); },
        [&](const Json& rule) {
            return meant.IsWords(rule) && rule.at("fwmark").is_null() == (meant.mark == 0) &&
                   rule.at("other_conditions") == false;
        });
}

Outcome DelRule(const Invocation& invocation) {
    const MeantRule meant(invocation);
    return DeleteRule(
        invocation, [&] { return tessel_rule_del(&meant.record); },
        [&](const Json& rule) { return meant.IsWords(rule); }, [&](const Json& rule) { return meant.IsMatched(rule); });
}

constexpr Command kTableCommands[] = {
    Row("add", "N:1-2147483647", &AddTable, "let all IPv4 traffic ask a routing table", "table add 100")
        .Sends(TESSEL_CMD_ROUTE_TABLE_ADD)
        .More("A rule without conditions, in front of the rules that are there. 253 to 255 are the kernel's own "
              "tables."),
    Row("del", "N:1-2147483647", &DelTable, "delete the rule that \"table add\" made", "table del 100")
        .Sends(TESSEL_CMD_ROUTE_TABLE_DEL)
        .More("The routes of the table stay. Nothing leaves a device whose rule for table 254 was deleted."),
};

constexpr Command kRuleCommands[] = {
    Row("show", "", &ShowRule, "the kernel's rules, in the order in which they are asked", "rule show -4")
        .OfFamily()
        .Columns("PREF {pref}|FROM {from}|FWMARK {fwmark}|TABLE {table}|FAMILY {family}|MARKS {other_conditions}")
        .More("The daemon is not asked: it reports no rules."),
    Row("add", "from A/L [fwmark N:0-2147483647] [pref N:1-2147483647] table N:1-2147483647", &AddRule,
        "let traffic of a source network ask a routing table",
        "rule add from 192.168.1.0/24 fwmark 0x10 pref 30 table 100")
        .Sends(TESSEL_CMD_RULE_ADD)
        .More("IPv4 only. Without fwmark, or with fwmark 0, the rule holds whatever the mark: the kernel compares "
              "no bits of a mark of 0. Without pref the kernel puts it in front of the rules that are there."),
    Row("del", "from A/L [fwmark N:0-2147483647] [pref N:1-2147483647] table N:1-2147483647", &DelRule,
        "delete a rule by its words", "rule del from 192.168.2.0/24 table 100")
        .Sends(TESSEL_CMD_RULE_DEL)
        .More("The first rule that has these words goes, whatever else it has; with pref, the first of that "
              "preference."),
    Row("del", "pref N:1-2147483647", &DelRule, "delete a rule by its preference", "rule del pref 30")
        .Sends(TESSEL_CMD_RULE_DEL),
};

}  // namespace

extern const Object kTable = {
    .name = "table", .summary = "routing tables that all traffic asks", .commands = kTableCommands};
extern const Object kRule = {.name = "rule", .summary = "rules that choose a routing table", .commands = kRuleCommands};

}  // namespace tessel::ctl
