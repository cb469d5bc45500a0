// The bonding device bond0: up to four Ethernet interfaces, one of which carries the traffic.
//
// The bond is down or up. A failed start leaves it down but does not undo what it did; a failed stop leaves it up:
// until a stop succeeds, no start does.
#pragma once

#include <array>
#include <span>

#include "core/memory.h"
#include "core/types.h"
#include "tessel/bond.h"

// Owns its texts; in a request none is null.
struct TBondParam {
    std::array<tessel::HeapPtr<char>, TESSEL_BOND_INTERFACES_MAX> achIface;
    u32 dwIfaceNum = 0;
    tessel::HeapPtr<char> pchActiveIface;
    tessel::HeapPtr<char> pchBondPath;  // has no effect

    // The names present. Their number must fit.
    [[nodiscard]] std::span<const tessel::HeapPtr<char>> Names() const {
        return std::span(achIface).first(dwIfaceNum);
    }
};

// What the bond that is up was made of.
extern TBondParam g_tBondParam;

// 1 while the bond is up.
extern u32 g_dwBondStatus;

// Its interfaces as passed to `ifenslave`, a blank in front of each, the active one first.
extern char g_achNicBuf[128];

// Makes the bond and takes over the parameters. `mode` is written after "active-backup" into the driver's mode file. 0,
// or -1 with a log line: the bond is already up, more than four interfaces, a name that cannot be an interface's, a
// tool that fails.
[[nodiscard]] i32 BondStart(u32 mode, TBondParam&& parameters);

// Undoes the bond and leaves its interfaces up and without addresses. 0, also when it is down; -1 with a log line when
// a tool fails.
[[nodiscard]] i32 BondStop();
