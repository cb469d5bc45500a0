/* The largest packet of an interface. */
#ifndef TESSEL_MTU_H
#define TESSEL_MTU_H

#include "tessel/ipc.h"

/* TESSEL_CMD_MTU_SET; answered with a status. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
    uint32_t dwMtu;                    /* bytes */
} __attribute__((packed)) TNetMtuSetReq;
static_assert(sizeof(TNetMtuSetReq) == 20, "wire size");
static_assert(offsetof(TNetMtuSetReq, dwMtu) == 16, "wire offset");

/* TESSEL_CMD_MTU_GET. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
} __attribute__((packed)) TNetMtuGetReq;
static_assert(sizeof(TNetMtuGetReq) == 16, "wire size");

typedef struct {
    int32_t nResult; /* 0 or -1 */
    uint32_t dwMtu;  /* bytes; 0 after a failure */
} __attribute__((packed)) TNetMtuGetReply;
static_assert(sizeof(TNetMtuGetReply) == 8, "wire size");
static_assert(offsetof(TNetMtuGetReply, dwMtu) == 4, "wire offset");

#endif
