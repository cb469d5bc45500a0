/* Traffic statistics: how much the device's own interfaces send and receive. */
#ifndef TESSEL_TRAFFIC_H
#define TESSEL_TRAFFIC_H

#include "tessel/ipc.h"

enum { TESSEL_TRAFFIC_INTERFACES = 3 }; /* eth0, eth1, eth2 */

/* TESSEL_CMD_STAT_START; answered with a status, -1 for an interval of 0. While statistics run, another start changes
 * nothing. TESSEL_CMD_STAT_STOP has no payload; the current period is still reported. */
typedef struct {
    uint32_t dwInterval; /* seconds */
} __attribute__((packed)) TNetStatStartReq;
static_assert(sizeof(TNetStatStartReq) == 4, "wire size");

/* The traffic of one period. A rate is the difference of two counters: if a counter restarted because its interface was
 * recreated, it is negative when read as a signed number. */
typedef struct {
    uint64_t ullSendBand; /* bits per second */
    uint64_t ullRecvBand;
    uint32_t dwValid; /* 1: the interface was there at both ends of the period; else the rates are 0 */
    uint32_t dwReserved;
} __attribute__((packed)) TNetBandwidth;
static_assert(sizeof(TNetBandwidth) == 24, "wire size");
static_assert(offsetof(TNetBandwidth, ullRecvBand) == 8, "wire offset");
static_assert(offsetof(TNetBandwidth, dwValid) == 16, "wire offset");

/* Type of the notifications to TESSEL_SOCKET_STAT. */
enum { TESSEL_STAT_BANDWIDTH = 0 };

/* Their payload, one at the end of each period. */
typedef struct {
    TNetBandwidth atBand[TESSEL_TRAFFIC_INTERFACES];
} __attribute__((packed)) TNetBandwidthReport;
static_assert(sizeof(TNetBandwidthReport) == 72, "wire size");

#endif
