#include "firewall/rule.h"

#include <cstring>

#include "core/log.h"
#include "core/log_control.h"

namespace tessel {

namespace {

// Every rule: the program twice, operation, chain, match, target.
constexpr char kRule[] = "%s %s %s %s%s -j %s";
constexpr char kLogRule[] = "%s %s %s %s%s -j LOG %s --log-level %s";

constexpr u32 kCheckOutputBytes = 128;
constexpr std::size_t kLogLevelNotice = 2;  // of g_achLogLevel

}  // namespace

bool IsDeletion(const Rule& rule) {
    return strcmp(rule.operation, "-D") == 0;
}

bool ComposeRule(CommandLine& line, const Rule& rule) {
    return ComposeCommand(line, kRule, rule.program, rule.program, rule.operation, rule.chain, rule.match, rule.target);
}

i32 RunLogRule(const Rule& rule, const LogRule& log, CallSite where) {
    CommandLine line(where);
    const bool isComposed = ComposeCommand(line, kLogRule, rule.program, rule.program, rule.operation, rule.chain,
                                           rule.match, log.prefix, g_achLogLevel[kLogLevelNotice]);
    return isComposed ? RunChange(line, {.name = "", .failure = log.failure}) : -1;
}

std::optional<i32> RunRule(const Rule& rule, const char* failure, const LogRule* log, CallSite where) {
    CommandLine line(where);
    if (!ComposeRule(line, rule)) return -1;
    if (!IsDeletion(rule) && RuleCheck(line.text) != 0) return std::nullopt;
    if (log != nullptr) (void)RunLogRule(rule, *log, where);  // the rule itself matters more
    return RunChange(line, {.name = "", .failure = failure});
}

}  // namespace tessel

i32 RuleCheck(const char* rule) {
    if (rule == nullptr) {
        TESSEL_ERR("ExecCmd pchRule is NULL!");
        return 0;
    }
    tessel::CommandLine check;
    if (!tessel::ComposeCommand(check, "%s", rule)) return 0;
    char* option = strchr(check.text, '-');
    if (option == nullptr || option[1] == '\0') {
        TESSEL_ERR("not find - ");
        return 0;
    }
    option[1] = 'C';
    TESSEL_PRT("use check option");
    tessel::ToolOutput output(tessel::kCheckOutputBytes);
    if (tessel::RunForStatus(check, &output) == 0 && !output.hasDied) return -1;
    TESSEL_ERR("%s", rule);
    TESSEL_ERR("%s", output.text);
    if (strstr(output.text, "Bad rule") != nullptr) TESSEL_ERR("the rule not exist");
    return 0;
}
