/* Which uplink is preferred: the metrics of the interfaces' IPv4 default routes. */
#ifndef TESSEL_PRIORITY_H
#define TESSEL_PRIORITY_H

#include "tessel/ipc.h"

enum { TESSEL_PRIORITIES_MAX = 10 };

/* One interface. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded; empty: no entry */
    int32_t nPriority;                 /* the metric of its IPv4 default route: the lowest is preferred */
} __attribute__((packed)) TNetPrioParam;
static_assert(sizeof(TNetPrioParam) == 20, "wire size");
static_assert(offsetof(TNetPrioParam, nPriority) == 16, "wire offset");

/* TESSEL_CMD_PRIORITY_SET, always answered with 0, and the reply to TESSEL_CMD_PRIORITY_GET, whose request has no
 * payload. The first list since the daemon's start decides which interfaces the table holds and switches priority
 * routing on; later ones only change their metrics. An empty first list and one whose payload ends before its last
 * entry are ignored. The reply keeps the table's positions: entries without a name, all zero, may occur between
 * others. */
typedef struct {
    uint32_t dwNum; /* entries, at most TESSEL_PRIORITIES_MAX; in the reply those with a name */
    TNetPrioParam atPrio[TESSEL_PRIORITIES_MAX];
} __attribute__((packed)) TNetPrioParamList;
static_assert(sizeof(TNetPrioParamList) == 204, "wire size");
static_assert(offsetof(TNetPrioParamList, atPrio) == 4, "wire offset");

#endif
