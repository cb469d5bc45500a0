/* Stopping a remote-access service. */
#ifndef TESSEL_SERVICE_H
#define TESSEL_SERVICE_H

#include "tessel/ipc.h"

/* TESSEL_CMD_SERVICE_STOP; answered with a status. Every process of that name is ended with signal 9. */
typedef struct {
    char achServiceName[16]; /* "ssh", "telnetd", "ftpd" or a process name, NUL terminated */
} __attribute__((packed)) TNetServiceStopReq;
static_assert(sizeof(TNetServiceStopReq) == 16, "wire size");

#endif
