#include "firewall/rule_file.h"

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "firewall/rule.h"

using tessel::CallSite;

namespace {

// Every line this file runs: the program, then its argument vector. No shell reads it: ">", "<" and the file's name
// reach the tools as words, and what they make of them is up to them.
constexpr char kLine[] = "%s %s %s %s%s";

struct Tool {
    char program[18];
    char direction[2];
    char suffix[3];
};

constexpr Tool kSave[] = {{"iptables-save", ">", "-4"}, {"ip6tables-save", ">", "-6"}};
constexpr Tool kRestore[] = {{"iptables-restore", "<", "-4"}, {"ip6tables-restore", "<", "-6"}};

i32 RunTools(const Tool (&both)[2], u32 ipType, const char* path, CallSite where) {
    if (!tessel::IsLineWord(path, where)) return -1;
    const auto tools = tessel::RowsOf(both, ipType);
    if (tools.empty()) TESSEL_ERR_AT(where, "the protocol type %d is invalid!", static_cast<i32>(ipType));
    i32 result = -1;
    for (const Tool& tool : tools) {
        tessel::CommandLine line(where);
        const bool isComposed =
            tessel::ComposeCommand(line, kLine, tool.program, tool.program, tool.direction, path, tool.suffix);
        result = isComposed ? tessel::RunChange(line, {.name = ""}) : -1;
    }
    return result;
}

}  // namespace

i32 SaveFirewall(u32 ipType, const char* path) {
    return RunTools(kSave, ipType, path, CallSite::Current());
}

i32 RestoreFirewall(u32 ipType, const char* path) {
    return RunTools(kRestore, ipType, path, CallSite::Current());
}
