#include <fmt/format.h>

#include "client/ctl/addresses.h"
#include "client/ctl/handlers.h"
#include "client/ctl/routes.h"
#include "client/ctl/rules.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

std::string MarkText(const KernelRule& rule) {
    return rule.mark ? fmt::format("{:#x}", *rule.mark) : "";
}

}  // namespace

std::string RuleText(const KernelRule& rule) {
    std::string text = fmt::format("pref {} from {}", rule.preference, rule.source.empty() ? "all" : rule.source);
    if (rule.mark) text += " fwmark " + MarkText(rule);
    if (rule.hasOtherConditions) text += " and more";
    return rule.table == 0 ? text : fmt::format("{} table {}", text, rule.table);
}

ordered_json RuleJson(const KernelRule& rule) {
    const SplitNetwork source = SplitNetworkText(rule.source, rule.family);
    return {{"pref", rule.preference},
            {"from", source.address},
            {"prefix_length", source.prefixLength},
            {"fwmark", rule.mark ? ordered_json(*rule.mark) : ordered_json()},
            {"table", rule.table == 0 ? ordered_json() : ordered_json(rule.table)},
            {"family", FamilyName(static_cast<u32>(rule.family))},
            {"other_conditions", rule.hasOtherConditions}};
}

Outcome RuleShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = ordered_json::array();
    outcome.table.header = {"PREF", "FROM", "FWMARK", "TABLE", "FAMILY", "MARKS"};
    for (const KernelRule& rule : KernelRules(FamilyOf(invocation.options))) {
        outcome.document.push_back(RuleJson(rule));
        outcome.table.rows.push_back({{std::to_string(rule.preference)},
                                      {rule.source.empty() ? "all" : rule.source},
                                      {rule.mark ? MarkText(rule) : "-"},
                                      {rule.table == 0 ? "-" : std::to_string(rule.table)},
                                      {FamilyName(static_cast<u32>(rule.family))},
                                      {rule.hasOtherConditions ? "further conditions" : ""}});
    }
    return outcome;
}

}  // namespace tessel::ctl
