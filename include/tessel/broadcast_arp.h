/* The broadcast ARP announcer on eth0: bursts of three ARP requests, 180 to 240 seconds apart. */
#ifndef TESSEL_BROADCAST_ARP_H
#define TESSEL_BROADCAST_ARP_H

#include "tessel/ipc.h"

/* TESSEL_CMD_BROADCAST_ARP_START; answered with a status, or not at all if its size is wrong. While the announcer runs,
 * another start changes nothing. TESSEL_CMD_BROADCAST_ARP_STOP has no payload: with one it gets no answer. */
typedef struct {
    uint32_t dwTargetIp; /* the address that the requests ask for; network order */
} __attribute__((packed)) TNetBroadcastArpReq;
static_assert(sizeof(TNetBroadcastArpReq) == 4, "wire size");

#endif
