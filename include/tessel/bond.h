/* Bonding: several Ethernet interfaces joined into one, bond0; one of them carries the traffic. */
#ifndef TESSEL_BOND_H
#define TESSEL_BOND_H

#include "tessel/ipc.h"

enum { TESSEL_BOND_INTERFACES_MAX = 4 };

/* TESSEL_CMD_BOND_START; answered with a status. No fixed record: the parts follow each other without padding, and each
 * text is its length (u32) and that many bytes, the last of them a NUL.
 *
 *     TNetBondStartHead   with the length of the path
 *     path                bytes only
 *     u32                 number of interfaces
 *     text                the name of each
 *     text                name of the active one
 *
 * A request that is cut short, or is not as long as it says, gets no answer. TESSEL_CMD_BOND_STOP has no payload. */
typedef struct {
    int32_t nSendLen;      /* bytes of the whole payload */
    uint32_t dwBondMode;   /* written after "active-backup" into the bonding driver's mode file */
    uint32_t nBondPathLen; /* bytes of the path, which the daemon keeps but does not use */
} __attribute__((packed)) TNetBondStartHead;
static_assert(sizeof(TNetBondStartHead) == 12, "wire size");
static_assert(offsetof(TNetBondStartHead, dwBondMode) == 4, "wire offset");
static_assert(offsetof(TNetBondStartHead, nBondPathLen) == 8, "wire offset");

#endif
