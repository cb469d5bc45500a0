/* PPPoE: dialling a link through an Ethernet interface. */
#ifndef TESSEL_PPPOE_H
#define TESSEL_PPPOE_H

#include "tessel/ipc.h"

/* How a link is dialled. Texts are NUL terminated; an empty one is left out. */
typedef struct {
    char achUser[255];                 /* no control characters; passed to pppd unchanged, like the password */
    char achPassword[255];             /* no control characters */
    char achService[255];              /* only letters, digits and ._@%+=:,/-; no '-' in front */
    uint32_t dwPersist;                /* 1: a link that ended is dialled again */
    uint32_t dwReserved;               /* not read */
    uint32_t dwDebug;                  /* 1: pppd logs what it negotiates */
    uint32_t dwHoldoff;                /* seconds before it is dialled again; 0: pppd's default */
    uint32_t dwLcpEchoInterval;        /* seconds between echo requests; 0: none are sent */
    uint32_t dwLcpEchoFailure;         /* this many unanswered requests end the link; 0: never */
    uint32_t dwMaxfail;                /* this many failed attempts in a row end pppd; 0: never */
    char achDevName[TESSEL_NAME_SIZE]; /* of the Ethernet interface */
} __attribute__((packed)) TNetPppoeConf;
static_assert(sizeof(TNetPppoeConf) == 809, "wire size");
static_assert(offsetof(TNetPppoeConf, achPassword) == 255, "wire offset");
static_assert(offsetof(TNetPppoeConf, achService) == 510, "wire offset");
static_assert(offsetof(TNetPppoeConf, dwPersist) == 765, "wire offset");
static_assert(offsetof(TNetPppoeConf, dwDebug) == 773, "wire offset");
static_assert(offsetof(TNetPppoeConf, dwHoldoff) == 777, "wire offset");
static_assert(offsetof(TNetPppoeConf, dwLcpEchoInterval) == 781, "wire offset");
static_assert(offsetof(TNetPppoeConf, dwLcpEchoFailure) == 785, "wire offset");
static_assert(offsetof(TNetPppoeConf, dwMaxfail) == 789, "wire offset");
static_assert(offsetof(TNetPppoeConf, achDevName) == 793, "wire offset");

/* TESSEL_CMD_PPPOE_START; answered with a status, 0 once pppd has been started, without waiting for the link to come
 * up. A second start dials a second link. */
typedef struct {
    uint16_t wSinFamily; /* 2 IPv4 only, 10 IPv6 only, 11 both */
    TNetPppoeConf tConf;
} __attribute__((packed)) TNetPppoeStartReq;
static_assert(sizeof(TNetPppoeStartReq) == 811, "wire size");
static_assert(offsetof(TNetPppoeStartReq, tConf) == 2, "wire offset");

/* TESSEL_CMD_PPPOE_STOP; answered with a status, 0 also when no link of the family is up. Ends one link. */
typedef struct {
    uint16_t wSinFamily;
} __attribute__((packed)) TNetPppoeStopReq;
static_assert(sizeof(TNetPppoeStopReq) == 2, "wire size");

#endif
