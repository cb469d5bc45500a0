// Links by PPPoE: one `pppd` each, which is started and left to itself.
//
// No state is kept: a link is up while its pppd runs, which a stop finds by a word of its command line.
#pragma once

#include "core/exec.h"
#include "core/types.h"
#include "tessel/pppoe.h"

struct TDaePppoeInfo {
    TDaePppoeInfo* next;
    u16 wSinFamily;
};

// One record for IPv4, followed by one for IPv6; null until they are made. Nothing uses them.
extern TDaePppoeInfo* g_ptDaePppoeInfo;

// Makes the two records. Without memory fewer, with a log line.
void DaemonPppoeInit();

// Dials a link: family 2 for IPv4, 10 for IPv6, 11 for both; one of any other family cannot be stopped. The line goes
// through the shell, and reaches pppd word for word. 0 once it has been started, also when there is no pppd; -1 with a
// log line if a text cannot be passed on (tessel/pppoe.h) or all of them together are too long.
[[nodiscard]] i32 PppoeClientStart(u16 wSinFamily, const TNetPppoeConf& conf);

// Kills a pppd of the family; for both families, possibly an IPv6-only one. 0, also when there is none or it cannot be
// killed, which is logged; -1 with a log line for another family.
[[nodiscard]] i32 PppoeClientStop(u16 wSinFamily);

namespace tessel {

// The shell's line that dials such a link. False, with a log line, for a text that cannot be passed on or a line that
// is too long.
[[nodiscard]] bool ComposePppoe(CommandLine& line, u16 wSinFamily, const TNetPppoeConf& conf);

}  // namespace tessel
