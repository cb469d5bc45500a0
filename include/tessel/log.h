/* Control of the log level and the log files. */
#ifndef TESSEL_LOG_H
#define TESSEL_LOG_H

#include "tessel/ipc.h"

enum {
    TESSEL_LOG_OPEN_LIB = 1,
    TESSEL_LOG_CLOSE_LIB = 2,
    TESSEL_LOG_OPEN_DAEMON = 3,
    TESSEL_LOG_CLOSE_DAEMON = 4,
    TESSEL_LOG_OPEN_BOTH = 5,
    TESSEL_LOG_CLOSE_BOTH = 6
};

/* TESSEL_CMD_LOG_FILE; answered with a status. For the codes of the library's file the daemon answers 0 and does
 * nothing: that file belongs to the application's own process. Opening truncates. */
typedef struct {
    uint32_t eCmd;           /* TESSEL_LOG_... */
    char achLibPath[128];    /* NUL terminated; empty: "/tmp/tessel_lib.log" */
    char achDaemonPath[128]; /* NUL terminated; empty: "/tmp/tessel_daemon.log" */
} __attribute__((packed)) LogFileCtl;
static_assert(sizeof(LogFileCtl) == 260, "wire size");
static_assert(offsetof(LogFileCtl, achLibPath) == 4, "wire offset");
static_assert(offsetof(LogFileCtl, achDaemonPath) == 132, "wire offset");

/* TESSEL_CMD_LOG_LEVEL; answered with status 0 for every value. */
typedef struct {
    int32_t nLevel; /* above 1: errors; above 3: information; 5 and above: debug */
} __attribute__((packed)) TNetLogLevelReq;
static_assert(sizeof(TNetLogLevelReq) == 4, "wire size");

#endif
