// Saving and restoring the rules: by the daemon, and on this side by the device's own tools.
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>

#include "client/ctl/confirm.h"
#include "client/ctl/firewall_readback.h"
#include "client/ctl/firewall_session.h"
#include "client/ctl/handlers.h"
#include "client/ctl/rule_file.h"
#include "client/ctl/tool_output.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

std::string Name(int family) {
    return FamilyName(static_cast<u32>(family));
}

// "1 inet6 rule".
std::string CountText(std::size_t rules, int family) {
    return fmt::format("{} {} {}", rules, Name(family), rules == 1 ? "rule" : "rules");
}

// What the daemon's -1 means, as far as it can mean anything else.
Outcome Answered(const std::string& asked, int error, std::string_view instead, const Options& options) {
    if (error != TESSEL_OK) {
        return CallFailed(asked, error,
                          fmt::format("\">\" and \"<\" reach the tool as words, which it refuses; no file was touched. "
                                      "\"tesselctl firewall {} FILE\" does it on this side",
                                      instead));
    }
    Outcome outcome;
    outcome.document = {{"done", asked}, {"family", Name(FamilyOf(options))}};
    outcome.done = asked + "   done";
    outcome.notes.push_back(
        fmt::format("the tool took it, but no tool writes or reads a file for it: see \"tesselctl "
                    "firewall {} FILE\"",
                    instead));
    return outcome;
}

// The rules of one family that an import replaces.
struct Replacement {
    int family;
    const RuleSection* section;
    std::string before;  // as the save tool printed it
    std::size_t rulesBefore;

    [[nodiscard]] std::string Text() const {
        return fmt::format("{} by {} ({})", CountText(rulesBefore, family), section->rules,
                           fmt::join(section->tables, ", "));
    }
};

std::size_t CountRules(const std::string& saved, const std::vector<std::string>& tables) {
    const RuleFile parsed = ParseRuleFile(saved, TESSEL_FAMILY_INET);
    std::size_t count = 0;
    std::string table;
    for (const auto& [family, section] : parsed.sections) {
        std::istringstream lines(section.text);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with('*')) table = line.substr(1);
            const bool isRule = line.starts_with('[') || line.starts_with('-');
            count += isRule && std::find(tables.begin(), tables.end(), table) != tables.end() ? 1 : 0;
        }
    }
    return count;
}

// Everything is looked at before anything is changed.
std::optional<Failure> Prepare(const std::string& asked, const RuleFile& file, const Options& options,
                               std::vector<Replacement>& replacements) {
    for (const int family : FamiliesOf(options)) {
        const auto section = file.sections.find(family);
        if (section == file.sections.end()) {
            if (FamilyOf(options) == TESSEL_FAMILY_BOTH) continue;
            return Refused(asked, fmt::format("there are no {} rules in it", Name(family)));
        }
        const CapturedTool test = CaptureTool({RestoreToolOf(family), "--test"}, section->second.text);
        if (!test.isDone) return Refused(asked, test.problem);
        const CapturedTool saved = CaptureTool({SaveToolOf(family), "-c"});
        if (!saved.isDone) return Refused(asked, saved.problem);
        if (auto failure = WhyShutOut(asked, ParseFilter(section->second.text, family), options)) return failure;
        replacements.push_back({.family = family,
                                .section = &section->second,
                                .before = saved.text,
                                .rulesBefore = CountRules(saved.text, section->second.tables)});
    }
    return std::nullopt;
}

// Puts back what there was, and empties tables that there were not.
bool Undo(const Replacement& replacement) {
    std::string text = replacement.before;
    for (const std::string& table : replacement.section->tables) {
        if (text.find("*" + table + "\n") == std::string::npos) text += fmt::format("*{}\nCOMMIT\n", table);
    }
    return CaptureTool({RestoreToolOf(replacement.family), "-c"}, text).isDone;
}

// All of them or, as far as that can be had, none.
std::optional<Failure> Apply(const std::string& asked, const std::vector<Replacement>& replacements) {
    for (auto next = replacements.begin(); next != replacements.end(); ++next) {
        const CapturedTool tool = CaptureTool({RestoreToolOf(next->family), "-c"}, next->section->text);
        if (tool.isDone) continue;
        const bool isUndone = std::all_of(replacements.begin(), next + 1, &Undo);
        return Failed(asked, tool.problem + (isUndone ? ". The rules are as before"
                                                      : ". What was there before could not be put back"));
    }
    return std::nullopt;
}

// A family whose rules are fewer than those in the file.
std::string ImportFault(const std::vector<Replacement>& replacements) {
    for (const Replacement& replacement : replacements) {
        const CapturedTool saved = CaptureTool({SaveToolOf(replacement.family)});
        const std::size_t count = CountRules(saved.text, replacement.section->tables);
        if (saved.isDone && count < replacement.section->rules) {
            return fmt::format("of {} there are {}", CountText(replacement.section->rules, replacement.family), count);
        }
    }
    return "";
}

ordered_json FamiliesJson(const std::vector<Replacement>& replacements) {
    ordered_json families = ordered_json::array();
    for (const Replacement& replacement : replacements) {
        families.push_back({{"family", Name(replacement.family)},
                            {"tables", replacement.section->tables},
                            {"rules", replacement.section->rules},
                            {"rules_before", replacement.rulesBefore}});
    }
    return families;
}

// A dry run is not refused.
void AddGuardNote(Outcome& outcome, const Replacement& replacement, const Options& options) {
    const auto session = GuardedSession(options);
    if (!options.dryRun || !session || session->peer.wSinFamily != replacement.family) return;
    if (LetsIn(ParseFilter(replacement.section->text, replacement.family), *session)) return;
    outcome.notes.push_back(session->text + ", which would be shut out");
}

}  // namespace

Outcome FirewallSave(const Invocation& invocation) {
    const std::string path = invocation.words.Get("PATH");
    return Answered("firewall save " + path, tessel_firewall_save(ProtocolsOf(invocation.options), path.c_str()),
                    "export", invocation.options);
}

Outcome FirewallRestore(const Invocation& invocation) {
    const std::string path = invocation.words.Get("PATH");
    return Answered("firewall restore " + path, tessel_firewall_restore(ProtocolsOf(invocation.options), path.c_str()),
                    "import", invocation.options);
}

Outcome FirewallExport(const Invocation& invocation) {
    const std::string path = invocation.words.Get("FILE");
    const std::string asked = "firewall export " + path;
    const Options& options = invocation.options;
    Outcome outcome;
    std::map<int, std::string> saved;
    for (const int family : FamiliesOf(options)) {
        const CapturedTool tool = CaptureTool({SaveToolOf(family)});
        if (!tool.isDone) return Failed(asked, tool.problem);
        saved[family] = tool.text;
        outcome.planned.push_back(fmt::format("{} > {}", SaveToolOf(family), path));
    }
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && status.st_size > 0) {
        const auto failure = Agree(asked, fmt::format("Replace {} ({} bytes)", path, status.st_size),
                                   fmt::format("the file has {} bytes and would be replaced", status.st_size), options);
        if (failure) return *failure;
    }
    if (options.dryRun) return outcome;
    const std::string text = RenderRuleFile(saved);
    const RuleFile parsed = ParseRuleFile(text, std::nullopt);
    if (!parsed.problem.empty()) return Failed(asked, "what the tools printed cannot be read back: " + parsed.problem);
    if (const auto problem = ReplaceFile(path, text)) return Failed(asked, *problem);
    std::vector<std::string> counts;
    outcome.document = {{"file", path}, {"families", ordered_json::array()}};
    for (const auto& [family, section] : parsed.sections) {
        outcome.document["families"].push_back(
            {{"family", Name(family)}, {"tables", section.tables}, {"rules", section.rules}});
        counts.push_back(CountText(section.rules, family));
    }
    outcome.done = fmt::format("{}   {}", path, fmt::join(counts, ", "));
    return outcome;
}

Outcome FirewallImport(const Invocation& invocation) {
    const std::string path = invocation.words.Get("FILE");
    const std::string asked = "firewall import " + path;
    const Options& options = invocation.options;
    const FileText text = ReadRuleFile(path);
    if (!text.problem.empty()) return Refused(asked, text.problem);
    const bool isOneFamily = FamilyOf(options) != TESSEL_FAMILY_BOTH;
    const RuleFile file = ParseRuleFile(text.text, isOneFamily ? std::optional<int>(FamilyOf(options)) : std::nullopt);
    if (!file.problem.empty()) return Refused(asked, file.problem);
    std::vector<Replacement> replacements;
    if (auto failure = Prepare(asked, file, options, replacements)) return std::move(*failure);
    Outcome outcome;
    std::vector<std::string> texts;
    std::size_t rulesBefore = 0;
    for (const Replacement& replacement : replacements) {
        texts.push_back(replacement.Text());
        outcome.planned.push_back("replaces " + texts.back());
        AddGuardNote(outcome, replacement, options);
        rulesBefore += replacement.rulesBefore;
    }
    if (options.dryRun) return outcome;
    const std::string change = fmt::format("{}", fmt::join(texts, " and "));
    if (rulesBefore > 0) {
        auto failure = Agree(asked, "Replace " + change, "this would replace " + change, options);
        if (failure) return std::move(*failure);
    }
    if (auto failure = Apply(asked, replacements)) return std::move(*failure);
    const std::string fault = ImportFault(replacements);
    if (!fault.empty()) return NotApplied(asked, "the tools took it, but " + fault);
    outcome.document = {{"file", path}, {"families", FamiliesJson(replacements)}};
    outcome.done = fmt::format("{}   replaced {}", path, change);
    return outcome;
}

}  // namespace tessel::ctl
