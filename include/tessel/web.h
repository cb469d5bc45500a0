/* The device's web server. */
#ifndef TESSEL_WEB_H
#define TESSEL_WEB_H

#include "tessel/ipc.h"

/* TESSEL_CMD_WEBS_START; answered with a status. TESSEL_CMD_WEBS_STOP has no payload; its status is -1 also when no
 * server runs. */
typedef struct {
    uint32_t dwReserved; /* has no effect */
} __attribute__((packed)) TNetWebsStartReq;
static_assert(sizeof(TNetWebsStartReq) == 4, "wire size");

#endif
