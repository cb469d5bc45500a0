/* DHCP: clients for both families, and the server. */
#ifndef TESSEL_DHCP_H
#define TESSEL_DHCP_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

enum { TESSEL_DHCP_DNS_MAX = 64 };

/* TESSEL_CMD_DHCPC_START; answered with a status. The client asks for DNS servers. One that is already running is asked
 * to renew its lease, and reports go to the process named last. */
typedef struct {
    uint16_t wSinFamily;               /* 2 or 10 */
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
    int32_t nPid;                      /* of the process that listens for the reports: part of its socket's name */
} __attribute__((packed)) TNetDhcpcStartReq;
static_assert(sizeof(TNetDhcpcStartReq) == 22, "wire size");
static_assert(offsetof(TNetDhcpcStartReq, nPid) == 18, "wire offset");

/* TESSEL_CMD_DHCPC_START_EX; the same, with a choice about DNS servers. */
typedef struct {
    uint16_t wSinFamily;
    char achDevName[TESSEL_NAME_SIZE];
    uint16_t wDnsDynmic; /* 0: DNS servers are neither asked for nor reported */
    int32_t nPid;
} __attribute__((packed)) TNetDhcpcStartExReq;
static_assert(sizeof(TNetDhcpcStartExReq) == 24, "wire size");
static_assert(offsetof(TNetDhcpcStartExReq, wDnsDynmic) == 18, "wire offset");
static_assert(offsetof(TNetDhcpcStartExReq, nPid) == 20, "wire offset");

/* TESSEL_CMD_DHCPC_STOP and TESSEL_CMD_DHCPC_RENEW; answered with a status, which for RENEW is always -1: start again
 * instead. Stopping an IPv4 client that has already died answers -1. */
typedef struct {
    uint16_t wSinFamily;
    char achDevName[TESSEL_NAME_SIZE];
} __attribute__((packed)) TNetDhcpcReq;
static_assert(sizeof(TNetDhcpcReq) == 18, "wire size");
static_assert(offsetof(TNetDhcpcReq, achDevName) == 2, "wire offset");

/* Types of the notifications to TESSEL_SOCKET_DHCPC and TESSEL_SOCKET_DHCPCV6, with a TNetDhcpcLease each. */
enum {
    TESSEL_DHCPC_DECONFIGURED = 0, /* IPv4: the lease is gone */
    TESSEL_DHCPC_LEASE = 0x505,
    TESSEL_DHCPC_FAILED = 0x506
};

/* What is known of a lease. Only the IPv6 client sets the families of the router and the DNS servers. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE];
    TNetGateway tAddr;
    TNetGateway tRouter;
    uint32_t dwPrefixLen; /* IPv4: 31 for the mask 255.255.255.255 */
    uint32_t dwLeaseTime; /* seconds */
    uint32_t dwDnsNum;
    TNetGateway atDns[TESSEL_DHCP_DNS_MAX];
} __attribute__((packed)) TNetDhcpcLease;
static_assert(sizeof(TNetDhcpcLease) == 1348, "wire size");
static_assert(offsetof(TNetDhcpcLease, tRouter) == 36, "wire offset");
static_assert(offsetof(TNetDhcpcLease, dwPrefixLen) == 56, "wire offset");
static_assert(offsetof(TNetDhcpcLease, dwLeaseTime) == 60, "wire offset");
static_assert(offsetof(TNetDhcpcLease, dwDnsNum) == 64, "wire offset");
static_assert(offsetof(TNetDhcpcLease, atDns) == 68, "wire offset");

/* What a server hands out. */
typedef struct {
    TNetGateway tStart; /* first address of the pool; IPv4, like all addresses here */
    TNetGateway tEnd;   /* last one */
    uint32_t dwPrefixLen;
    TNetGateway tRouter;
    uint8_t abyReserved[24]; /* not read */
    uint32_t dwDnsNum;       /* at most 64 */
    TNetGateway atDns[TESSEL_DHCP_DNS_MAX];
} __attribute__((packed)) TNetDhcpsConf;
static_assert(sizeof(TNetDhcpsConf) == 1372, "wire size");
static_assert(offsetof(TNetDhcpsConf, dwPrefixLen) == 40, "wire offset");
static_assert(offsetof(TNetDhcpsConf, tRouter) == 44, "wire offset");
static_assert(offsetof(TNetDhcpsConf, dwDnsNum) == 88, "wire offset");
static_assert(offsetof(TNetDhcpsConf, atDns) == 92, "wire offset");

/* TESSEL_CMD_DHCPS_START; answered with a status. One server per interface, eight in all. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
    uint16_t wSinFamily;               /* 2; there is no server for IPv6 */
    TNetDhcpsConf tConf;
} __attribute__((packed)) TNetDhcpsStartReq;
static_assert(sizeof(TNetDhcpsStartReq) == 1390, "wire size");
static_assert(offsetof(TNetDhcpsStartReq, tConf) == 18, "wire offset");

/* TESSEL_CMD_DHCPS_STOP, answered with a status, and TESSEL_CMD_DHCPS_GET_STATUS, answered with a status that is 1
 * while the interface has a server. TESSEL_CMD_DHCPS_STOP_ALL has no payload. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE];
    uint16_t wSinFamily;
} __attribute__((packed)) TNetDhcpsReq;
static_assert(sizeof(TNetDhcpsReq) == 18, "wire size");
static_assert(offsetof(TNetDhcpsReq, wSinFamily) == 16, "wire offset");

#endif
