/* The hardware address of an interface. */
#ifndef TESSEL_MAC_H
#define TESSEL_MAC_H

#include "tessel/ipc.h"

/* TESSEL_CMD_MACADDR_SET; answered with a status. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
    uint8_t abyMac[6];                 /* as on the wire */
} __attribute__((packed)) TNetMacaddrSetReq;
static_assert(sizeof(TNetMacaddrSetReq) == 22, "wire size");
static_assert(offsetof(TNetMacaddrSetReq, abyMac) == 16, "wire offset");

/* TESSEL_CMD_MACADDR_GET. An address whose first byte is 0x22 cannot be read. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
} __attribute__((packed)) TNetMacaddrGetReq;
static_assert(sizeof(TNetMacaddrGetReq) == 16, "wire size");

typedef struct {
    int32_t nResult;      /* 0 or -1 */
    uint8_t abyMac[6];    /* zero after a failure */
    uint8_t abyUnused[2]; /* 0 */
} __attribute__((packed)) TNetMacaddrGetReply;
static_assert(sizeof(TNetMacaddrGetReply) == 12, "wire size");
static_assert(offsetof(TNetMacaddrGetReply, abyMac) == 4, "wire offset");

#endif
