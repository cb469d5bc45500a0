/* Traceroute: the routers that packets to a host pass, hop by hop. */
#ifndef TESSEL_TRACEROUTE_H
#define TESSEL_TRACEROUTE_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

enum {
    TESSEL_TRACES_MAX = 10,      /* at a time, whoever started them */
    TESSEL_TRACE_HOPS_MAX = 255, /* a trace goes no further */
    TESSEL_TRACE_PROBES = 3      /* sent to each hop */
};

/* TESSEL_CMD_TRACEROUTE_START; answered with a status: -1 while a trace with this id has not been stopped, even if it
 * has reached its end, or while TESSEL_TRACES_MAX have not. Any family is accepted; one other than 2 and 10 brings no
 * notification. */
typedef struct {
    TNetGateway tTarget;
    uint32_t dwMaxHops; /* 0: no notification at all */
    int32_t nUserId;    /* the client's own choice: part of its socket's name */
} __attribute__((packed)) TNetTracerouteStartReq;
static_assert(sizeof(TNetTracerouteStartReq) == 28, "wire size");
static_assert(offsetof(TNetTracerouteStartReq, dwMaxHops) == 20, "wire offset");
static_assert(offsetof(TNetTracerouteStartReq, nUserId) == 24, "wire offset");

/* TESSEL_CMD_TRACEROUTE_STOP; answered with status 0, also when there is no such trace. */
typedef struct {
    int32_t nUserId;
} __attribute__((packed)) TNetTracerouteStopReq;
static_assert(sizeof(TNetTracerouteStopReq) == 4, "wire size");

/* Types of the notifications to TESSEL_SOCKET_TRACEROUTE. */
enum {
    TESSEL_TRACE_ERROR = 101,       /* the probe could not be sent, or its answer not awaited */
    TESSEL_TRACE_NO_REPLY = 102,    /* no answer within five seconds */
    TESSEL_TRACE_HOP = 103,         /* a router on the way */
    TESSEL_TRACE_REACHED = 104,     /* the target itself: the last one */
    TESSEL_TRACE_UNREACHABLE = 105, /* not sent: there is no route */
    TESSEL_TRACE_REFUSED = 106      /* a host says that the target cannot be reached: the last one */
};

/* Their payload: one for each probe, preceded by another for a probe that could not be sent. */
typedef struct {
    TNetGateway tHop; /* who answered; the zero address when nobody did */
    uint32_t dwHop;   /* from 1: how many hops the probe was given */
    int32_t nUserId;  /* of the request */
    uint32_t dwTime;  /* microseconds from sending the probe to its answer; 5000000 without an answer */
    uint8_t abyReserved[12];
    uint32_t dwLast; /* 1: nothing follows, else 0 */
} __attribute__((packed)) TNetTracerouteResult;
static_assert(sizeof(TNetTracerouteResult) == 48, "wire size");
static_assert(offsetof(TNetTracerouteResult, dwHop) == 20, "wire offset");
static_assert(offsetof(TNetTracerouteResult, nUserId) == 24, "wire offset");
static_assert(offsetof(TNetTracerouteResult, dwTime) == 28, "wire offset");
static_assert(offsetof(TNetTracerouteResult, dwLast) == 44, "wire offset");

#endif
