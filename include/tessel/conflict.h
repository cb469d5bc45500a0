/* Address conflicts: other hosts on a link that use an address or a hardware address of this device. */
#ifndef TESSEL_CONFLICT_H
#define TESSEL_CONFLICT_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

/* TESSEL_CMD_CONFLICT_START and TESSEL_CMD_CONFLICT_STOP: reporting on and off; answered with a status. Addresses are
 * watched and defended either way. */
typedef struct {
    uint16_t wSinFamily; /* 2 or 10 */
} __attribute__((packed)) TNetConflictReq;
static_assert(sizeof(TNetConflictReq) == 2, "wire size");

/* Types of notifications to TESSEL_SOCKET_IP_CONFLICT and TESSEL_SOCKET_IPV6_CONFLICT. */
enum {
    TESSEL_CONFLICT_IP = 1, /* another host uses the address */
    TESSEL_CONFLICT_MAC = 2 /* another host uses the interface's hardware address */
};

/* Their payload. Reported again every five seconds while an address conflict lasts. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
    TNetGateway tAddr;                 /* own address, of the socket's family; after a MAC conflict one of them */
    uint8_t abyMac[6];                 /* the interface's own, whoever the other host is */
} __attribute__((packed)) TNetConflictReport;
static_assert(sizeof(TNetConflictReport) == 42, "wire size");
static_assert(offsetof(TNetConflictReport, tAddr) == 16, "wire offset");
static_assert(offsetof(TNetConflictReport, abyMac) == 36, "wire offset");

#endif
