/* Default gateways, and the address record that gateways, routes, rules, DHCP and NTP requests carry. */
#ifndef TESSEL_GATEWAY_H
#define TESSEL_GATEWAY_H

#include "tessel/ipc.h"

/* An address with its family. */
typedef struct {
    uint16_t wSinFamily; /* 2 IPv4, 10 IPv6 */
    uint16_t wReserved;  /* 0 */
    uint8_t abyAddr[16]; /* network order; IPv4 in the first 4 bytes; all zero: no gateway */
} __attribute__((packed)) TNetGateway;
static_assert(sizeof(TNetGateway) == 20, "wire size");
static_assert(offsetof(TNetGateway, wReserved) == 2, "wire offset");
static_assert(offsetof(TNetGateway, abyAddr) == 4, "wire offset");

/* TESSEL_CMD_GATEWAY_SET; answered with a status. The zero address without a table deletes the default route of the
 * family. An IPv6 gateway needs an interface. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated; empty: the kernel chooses the interface */
    TNetGateway tGateway;
    uint32_t dwTable; /* may be left out of the payload; 0: the main table */
} __attribute__((packed)) TNetGatewaySetReq;
static_assert(sizeof(TNetGatewaySetReq) == 40, "wire size");
static_assert(offsetof(TNetGatewaySetReq, tGateway) == 16, "wire offset");
static_assert(offsetof(TNetGatewaySetReq, dwTable) == 36, "wire offset");

/* TESSEL_CMD_GATEWAY_DEL, answered with a status, and TESSEL_CMD_GATEWAY_GET. A family other than 2 and 10 is answered
 * with 0, and nothing is done. Deleting an absent default route fails, with two exceptions for IPv6: it succeeds in the
 * main table, and without an interface in a numbered one. A numbered table that no route was ever put into does not
 * exist: deleting and reading there fail for both families. */
typedef struct {
    uint16_t wSinFamily;               /* 2 or 10 */
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated; empty: any interface */
    uint32_t dwTable;                  /* may be left out of the payload; 0: the main table */
} __attribute__((packed)) TNetGatewayReq;
static_assert(sizeof(TNetGatewayReq) == 22, "wire size");
static_assert(offsetof(TNetGatewayReq, achDevName) == 2, "wire offset");
static_assert(offsetof(TNetGatewayReq, dwTable) == 18, "wire offset");

typedef struct {
    int32_t nResult; /* 0, -1, or TESSEL_RESULT_LEARNT with the gateway filled in as for 0 */
    TNetGateway tGateway;
} __attribute__((packed)) TNetGatewayGetReply;
static_assert(sizeof(TNetGatewayGetReply) == 24, "wire size");
static_assert(offsetof(TNetGatewayGetReply, tGateway) == 4, "wire offset");

#endif
