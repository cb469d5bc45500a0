/* NTP client: the system clock and the hardware clock in step with one server of each family. */
#ifndef TESSEL_NTP_H
#define TESSEL_NTP_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

/* TESSEL_CMD_NTPC_START; answered with a status. The family within the server's address counts. */
typedef struct {
    uint16_t wSinFamily;         /* ignored */
    TNetGateway tServer;         /* family 2 or 10 */
    uint32_t dwSyncTimeInterval; /* seconds between queries that are answered; 0 counts as 1 */
} __attribute__((packed)) TNetNtpcStartReq;
static_assert(sizeof(TNetNtpcStartReq) == 26, "wire size");
static_assert(offsetof(TNetNtpcStartReq, tServer) == 2, "wire offset");
static_assert(offsetof(TNetNtpcStartReq, dwSyncTimeInterval) == 22, "wire offset");

/* TESSEL_CMD_NTPC_STOP; answered with a status. */
typedef struct {
    uint16_t wSinFamily; /* 2 or 10 */
} __attribute__((packed)) TNetNtpcStopReq;
static_assert(sizeof(TNetNtpcStopReq) == 2, "wire size");

/* TESSEL_CMD_NTPC_CHECK; answered with a status, 0 when the server answered. */
typedef struct {
    TNetGateway tServer; /* family 2 or 10 */
} __attribute__((packed)) TNetNtpcCheckReq;
static_assert(sizeof(TNetNtpcCheckReq) == 20, "wire size");

/* Types of the notifications to TESSEL_SOCKET_NTP and TESSEL_SOCKET_NTPV6. */
enum {
    TESSEL_NTPC_SYNCED = 1, /* with a TNetNtpcSynced */
    TESSEL_NTPC_FAILED = 2  /* no payload */
};

typedef struct {
    int32_t nTimeDeviation; /* seconds that the clock was off by; with IPv6 negative when it was slow */
} __attribute__((packed)) TNetNtpcSynced;
static_assert(sizeof(TNetNtpcSynced) == 4, "wire size");

#endif
