#include "firewall/rule.h"

#include <cstring>

#include "core/log.h"
#include "core/log_control.h"
#include "core/text.h"

namespace tessel {

namespace {

// Every rule: the program twice, operation, chain, match, target.
constexpr char kRule[] = "%s %s %s %s%s -j %s";
constexpr char kLogRule[] = "%s %s %s %s%s -j LOG %s --log-level %s";

constexpr u32 kCheckOutputBytes = 128;
constexpr std::size_t kLogLevelNotice = 2;  // of g_achLogLevel

bool ComposeLogRule(CommandLine& line, const Rule& rule, const LogRule& log) {
    return ComposeCommand(line, kLogRule, rule.program, rule.program, rule.operation, rule.chain, rule.match,
                          log.prefix, g_achLogLevel[kLogLevelNotice]);
}

// Only what is added can be there already; what is deleted is left to the tool.
bool IsPresent(const Rule& rule, const CommandLine& line) {
    return strcmp(rule.operation, "-D") != 0 && RuleCheck(line.text) != 0;
}

}  // namespace

bool IsRuleWord(const char* text, CallSite where) {
    if (text == nullptr) return false;  // ApiText has logged it
    return IsLineWord(text, where);
}

bool ComposeRule(CommandLine& line, const Rule& rule) {
    return ComposeCommand(line, kRule, rule.program, rule.program, rule.operation, rule.chain, rule.match, rule.target);
}

i32 RunLine(CommandLine& line, const char* failure, CallSite where) {
    TESSEL_PRT_AT(where, "achCmdBuf: %s", line.text);
    const i32 result = Run(line);
    if (result != 0) TESSEL_ERR_AT(where, "%s", failure);
    return result;
}

i32 RunLogRule(const Rule& rule, const LogRule& log, CallSite where) {
    CommandLine line;
    if (!ComposeLogRule(line, rule, log)) return -1;
    return RunLine(line, log.failure, where);
}

std::optional<i32> RunRule(const Rule& rule, const char* failure, const LogRule* log, CallSite where) {
    CommandLine line;
    CommandLine logLine;
    if (!ComposeRule(line, rule) || (log != nullptr && !ComposeLogRule(logLine, rule, *log))) return -1;
    if (IsPresent(rule, line)) return std::nullopt;
    if (log != nullptr) (void)RunLine(logLine, log->failure, where);  // the rule itself matters more
    return RunLine(line, failure, where);
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
    if (tessel::Run(check, output) == 0) return -1;
    TESSEL_ERR("%s", rule);
    TESSEL_ERR("%s", output.text);
    if (strstr(output.text, "Bad rule") != nullptr) TESSEL_ERR("the rule not exist");
    return 0;
}
