#include "services/bond.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "core/exec.h"
#include "core/log.h"
#include "core/netif.h"

using tessel::CommandLine;
using tessel::ComposeCommand;

TBondParam g_tBondParam;
u32 g_dwBondStatus = 0;
char g_achNicBuf[128] = {};

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kSlaveUp[] = "ifconfig ifconfig %s up ";
constexpr char kUp[] = "ifconfig ifconfig %s up";
constexpr char kDown[] = "ifconfig ifconfig bond0 down";
constexpr char kEnslave[] = "ifenslave ifenslave bond0%s";
constexpr char kRelease[] = "ifenslave ifenslave -d bond0%s";
constexpr char kFlush[] = "ip ip addr flush dev %s";
// Goes through the shell.
constexpr char kSetMode[] = "echo \"active-backup %d\"  > /sys/devices/virtual/net/bond0/bonding/mode";

constexpr char kBond[] = "bond0";

// The words with which lines are logged. Some steps of a start bear those of a stop, and the other way round: whoever
// searches the log knows them that way.
constexpr char kFlushWords[] = "BondStart flush cmd";
constexpr char kDownWords[] = "BondStop down";

static_assert(sizeof(g_achNicBuf) > (TESSEL_BOND_INTERFACES_MAX + 1) * std::size_t{TESSEL_NAME_SIZE},
              "names and blanks fit");

// Runs a line and logs it after `words` (null: not at all). False, with a log line, when it fails.
bool RunStep(const CommandLine& line, const char* words) {
    if (words != nullptr) TESSEL_PRT_AT(line.where, "%s : %s", words, line.text);
    if (Run(line) == 0) return true;
    TESSEL_ERR_AT(line.where, "exec_cmd %s error!", line.text);
    return false;
}

bool AreInterfaceNames(const TBondParam& parameters, tessel::CallSite where) {
    const auto names = parameters.Names();
    return tessel::IsInterfaceName(parameters.pchActiveIface.get(), where) &&
           std::all_of(names.begin(), names.end(),
                       [&](const auto& name) { return tessel::IsInterfaceName(name.get(), where); });
}

void AddSlave(const char* name, tessel::CallSite where) {
    const std::size_t length = strlen(g_achNicBuf);
    snprintf(g_achNicBuf + length, sizeof(g_achNicBuf) - length, " %s", name);
    TESSEL_PRT_AT(where, "achNicBuf : %s", g_achNicBuf);
}

// Lists the interfaces and brings all but the active one up.
bool PrepareSlaves(tessel::CallSite where) {
    const char* const active = g_tBondParam.pchActiveIface.get();
    g_achNicBuf[0] = '\0';
    AddSlave(active, where);
    for (const auto& name : g_tBondParam.Names()) {
        // Also true of eth10 when eth1 is active: eth10 is then left out.
        if (strncmp(name.get(), active, strlen(active)) == 0) continue;
        AddSlave(name.get(), where);
        CommandLine command(where);
        if (!ComposeCommand(command, kSlaveUp, name.get()) || !RunStep(command, kFlushWords)) return false;
    }
    return true;
}

bool TakeDown(tessel::CallSite where) {
    CommandLine command(where);
    return ComposeCommand(command, kDown) && RunStep(command, kDownWords);
}

// Whether the driver accepts the mode is not checked.
void SetMode(u32 mode, tessel::CallSite where) {
    CommandLine command(where);
    if (!ComposeCommand(command, kSetMode, static_cast<i32>(mode))) return;
    TESSEL_PRT_AT(where, "BondStart cmd : %s", command.text);
    (void)tessel::RunShell(command.text);
}

bool Release(const char* words, tessel::CallSite where) {
    CommandLine command(where);
    return ComposeCommand(command, kRelease, g_achNicBuf) && RunStep(command, words);
}

bool Flush(const char* name, const char* words, tessel::CallSite where) {
    CommandLine command(where);
    return ComposeCommand(command, kFlush, name) && RunStep(command, words);
}

bool JoinSlaves(tessel::CallSite where) {
    CommandLine command(where);
    if (!ComposeCommand(command, kUp, kBond) || !RunStep(command, "BondStart up")) return false;
    if (!ComposeCommand(command, kEnslave, g_achNicBuf) || !RunStep(command, "BondStart ifenslave cmd")) return false;
    const auto names = g_tBondParam.Names();
    const bool areFlushed = std::all_of(names.begin(), names.end(),
                                        [&](const auto& name) { return Flush(name.get(), kFlushWords, where); });
    if (!areFlushed) (void)Release(nullptr, where);  // the start has failed already
    return areFlushed;
}

// The start's failure; what it did stays done.
i32 Forget() {
    g_tBondParam = {};
    return -1;
}

}  // namespace

i32 BondStart(u32 mode, TBondParam&& parameters) {
    const auto where = tessel::CallSite::Current();
    if (g_dwBondStatus == 1) {
        TESSEL_ERR("the bond has started!");
        return -1;
    }
    if (parameters.dwIfaceNum > TESSEL_BOND_INTERFACES_MAX) {
        TESSEL_ERR("tessel support not more than %d nic!", TESSEL_BOND_INTERFACES_MAX);
        return -1;
    }
    if (!AreInterfaceNames(parameters, where)) return -1;
    g_tBondParam = std::move(parameters);
    if (!PrepareSlaves(where)) return Forget();
    if (!TakeDown(where)) return -1;  // the one failure after which the parameters stay
    SetMode(mode, where);
    if (!JoinSlaves(where)) return Forget();
    g_dwBondStatus = 1;
    return 0;
}

i32 BondStop() {
    const auto where = tessel::CallSite::Current();
    if (g_dwBondStatus != 1) {
        TESSEL_PRT("the bond has stopped!");
        return 0;
    }
    if (!Release("BondStop ifenslave cmd", where) || !Flush(kBond, kFlushWords, where) || !TakeDown(where)) return -1;
    for (const auto& name : g_tBondParam.Names()) {
        CommandLine command(where);
        if (!ComposeCommand(command, kUp, name.get()) || !RunStep(command, "BondStart ifconfig cmd")) return -1;
        if (!Flush(name.get(), nullptr, where)) return -1;
    }
    g_dwBondStatus = 0;
    g_tBondParam = {};
    return 0;
}
