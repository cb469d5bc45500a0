/* Ping: echoes to one address, each one reported. */
#ifndef TESSEL_PING_H
#define TESSEL_PING_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

enum { TESSEL_PINGS_MAX = 10 /* at a time */ };

/* TESSEL_CMD_PING_START; answered with a status, -1 also while the user's previous ping runs or ten are running. */
typedef struct {
    TNetGateway tTarget;   /* family 2 or 10, and the address */
    uint32_t dwPacketSize; /* data bytes of an echo request; below 56 counts as 56 */
    uint32_t dwTimeout;    /* seconds to wait for a reply */
    uint32_t dwTtl;        /* time to live; with IPv6 the hop limit */
    uint32_t dwCount;      /* echoes */
    int32_t nUserId;       /* chosen by the client; ends the name of its socket: TESSEL_SOCKET_PING "_" nUserId */
} __attribute__((packed)) TNetPingStartReq;
static_assert(sizeof(TNetPingStartReq) == 40, "wire size");
static_assert(offsetof(TNetPingStartReq, dwPacketSize) == 20, "wire offset");
static_assert(offsetof(TNetPingStartReq, dwTimeout) == 24, "wire offset");
static_assert(offsetof(TNetPingStartReq, dwTtl) == 28, "wire offset");
static_assert(offsetof(TNetPingStartReq, dwCount) == 32, "wire offset");
static_assert(offsetof(TNetPingStartReq, nUserId) == 36, "wire offset");

/* TESSEL_CMD_PING_STOP; answered with status 0, also when nothing runs. */
typedef struct {
    int32_t nUserId;
} __attribute__((packed)) TNetPingStopReq;
static_assert(sizeof(TNetPingStopReq) == 4, "wire size");

/* Types of the notifications to TESSEL_SOCKET_PING: how an echo ended. */
enum {
    TESSEL_PING_REPLY = 0,
    TESSEL_PING_NO_REPLY = 1,
    TESSEL_PING_NO_OUTPUT = 2,  /* the tool printed nothing */
    TESSEL_PING_UNREACHABLE = 3 /* there is no route */
};

/* Their payload, one for each echo. */
typedef struct {
    int32_t nUserId;
    uint32_t dwTtl;  /* that the reply arrived with; like the next, set for a reply only */
    uint32_t dwTime; /* microseconds from the request to the reply, below 100000000 */
    uint32_t dwSeq;  /* number of the echo, from 0 */
    uint32_t dwLast; /* 1: this is the last one */
} __attribute__((packed)) TNetPingResult;
static_assert(sizeof(TNetPingResult) == 20, "wire size");
static_assert(offsetof(TNetPingResult, dwTtl) == 4, "wire offset");
static_assert(offsetof(TNetPingResult, dwTime) == 8, "wire offset");
static_assert(offsetof(TNetPingResult, dwSeq) == 12, "wire offset");
static_assert(offsetof(TNetPingResult, dwLast) == 16, "wire offset");

#endif
