/* An address with its family: gateways, routes, rules, DHCP and NTP requests carry it. */
#ifndef TESSEL_GATEWAY_H
#define TESSEL_GATEWAY_H

#include "tessel/ipc.h"

typedef struct {
    uint16_t wSinFamily; /* 2 IPv4, 10 IPv6 */
    uint16_t wReserved;  /* 0 */
    uint8_t abyAddr[16]; /* network order; IPv4 in the first 4 bytes; all zero: no gateway */
} __attribute__((packed)) TNetGateway;
static_assert(sizeof(TNetGateway) == 20, "wire size");
static_assert(offsetof(TNetGateway, abyAddr) == 4, "wire offset");

#endif
