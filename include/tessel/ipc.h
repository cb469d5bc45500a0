/* How a message travels between applications and tessel_daemon.
 *
 * Every connection carries one request and at most one reply, each a 12-byte header followed directly by its payload.
 * Requests go to the daemon's socket; notifications go the other way, to a socket that the application listens on. Both
 * ends are on one device, so everything is in native byte order unless a field says otherwise. */
#ifndef TESSEL_IPC_H
#define TESSEL_IPC_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#if !defined(__cplusplus) && (!defined(__STDC_VERSION__) || __STDC_VERSION__ < 201112L)
#error "The headers of tessel need C11 or later, or C++ (gcc -std=c11)"
#ifndef static_assert
#define static_assert _Static_assert /* this one error is enough */
#endif
#endif

/* Socket files live here; a path of 102 characters or more, directory included, is refused. */
#define TESSEL_SOCKET_DIRECTORY "/tmp/"

/* The daemon's own socket. */
#define TESSEL_SOCKET_API "api_daemon"

/* Sockets of applications, to which the daemon connects to deliver notifications. Where there is a comment, the name is
 * followed by those words, joined by '_'. */
#define TESSEL_SOCKET_DHCPC         "ipc_dhcpc"   /* interface, pid */
#define TESSEL_SOCKET_DHCPCV6       "ipc_dhcpcv6" /* interface, 6, pid */
#define TESSEL_SOCKET_NTP           "ipc_ntp"
#define TESSEL_SOCKET_NTPV6         "ipc_ntpv6"
#define TESSEL_SOCKET_PING          "ipc_ping"          /* client id */
#define TESSEL_SOCKET_TRACEROUTE    "ipc_traceroute"    /* client id */
#define TESSEL_SOCKET_ROUTER_NOTIFY "ipc_router_notify" /* interface, uid, pid */
#define TESSEL_SOCKET_IP_CONFLICT   "ipc_ip_conflict"
#define TESSEL_SOCKET_IPV6_CONFLICT "ipc_ipv6_conflict"
#define TESSEL_SOCKET_STAT          "ipc_stat"

enum {
    TESSEL_SOCKET_PATH_MAX = 101, /* characters of a socket's path, directory included */
    TESSEL_PAYLOAD_MAX = 3072,    /* payload bytes of a request or notification */
    TESSEL_NAME_SIZE = 16         /* bytes of an interface name field: at most 15 characters and a NUL */
};

/* The header of every message. */
typedef struct {
    uint32_t type; /* command code (tessel/command.h), in a notification the event's code */
    int32_t size;  /* payload bytes that follow */
    uint32_t flag; /* 0 */
} IpcMsgHead;
static_assert(sizeof(IpcMsgHead) == 12, "wire size");
static_assert(offsetof(IpcMsgHead, size) == 4, "wire offset");
static_assert(offsetof(IpcMsgHead, flag) == 8, "wire offset");

/* Results of the transport functions. 0 is success; any other positive number is the byte count of a message that was
 * cut short. */
enum {
    TESSEL_IPC_OK = 0,
    TESSEL_IPC_ERROR = -1,
    TESSEL_IPC_WRITE_FAILED = 1101,
    TESSEL_IPC_READ_TIMEOUT = 1102,
    TESSEL_IPC_WRITE_TIMEOUT = 1103
};

/* Results inside replies: 0, -1, and what one command adds to them. */
enum {
    TESSEL_RESULT_OK = 0,
    TESSEL_RESULT_FAILED = -1,
    TESSEL_RESULT_LEARNT = 11111 /* the IPv6 default route was learnt from a router advertisement */
};

/* Address families as the records carry them (u16). */
enum {
    TESSEL_FAMILY_INET = 2,
    TESSEL_FAMILY_INET6 = 10,
    TESSEL_FAMILY_BOTH = 11 /* IPv4 first, then IPv6; only where a command says so */
};

/* The 4-byte reply of every command that answers with only a status. */
typedef struct {
    int32_t nResult; /* 0 or -1 */
} TNetStatusReply;
static_assert(sizeof(TNetStatusReply) == 4, "wire size");

#endif
