/* Router watch: the IPv6 addresses and the default gateway that an interface learns from router advertisements. */
#ifndef TESSEL_ROUTER_H
#define TESSEL_ROUTER_H

#include "tessel/address.h"
#include "tessel/gateway.h"
#include "tessel/ipc.h"

enum { TESSEL_ROUTER_WATCHES_MAX = 5 /* interfaces at a time */ };

/* TESSEL_CMD_ROUTER_ADVERTISE_START; answered with a status. If the interface is already watched, only the pid is taken
 * over, and what is known is reported again. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
    int32_t nUserId;                   /* like the next, chosen by the client for the name of its socket: */
    int32_t nPid;                      /* TESSEL_SOCKET_ROUTER_NOTIFY "_" achDevName "_" nUserId "_" nPid */
} __attribute__((packed)) TNetRouterStartReq;
static_assert(sizeof(TNetRouterStartReq) == 24, "wire size");
static_assert(offsetof(TNetRouterStartReq, nUserId) == 16, "wire offset");
static_assert(offsetof(TNetRouterStartReq, nPid) == 20, "wire offset");

/* TESSEL_CMD_ROUTER_ADVERTISE_STOP; answered with status 0, also when the interface is not watched. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
} __attribute__((packed)) TNetRouterStopReq;
static_assert(sizeof(TNetRouterStopReq) == 16, "wire size");

/* Type of the notifications to TESSEL_SOCKET_ROUTER_NOTIFY. */
enum { TESSEL_ROUTER_CHANGED = 0 };

/* Their payload, one for each change. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
    TNetIfaceIp tIfaceIp;              /* the global addresses learnt from router advertisements */
    TNetGateway tGateway;              /* family 10; the zero address: there is none */
} __attribute__((packed)) TNetRouterNotify;
static_assert(sizeof(TNetRouterNotify) == 616, "wire size");
static_assert(offsetof(TNetRouterNotify, tIfaceIp) == 16, "wire offset");
static_assert(offsetof(TNetRouterNotify, tGateway) == 596, "wire offset");

#endif
