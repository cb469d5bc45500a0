/* Addresses of an interface: the numeric list and the text record. */
#ifndef TESSEL_ADDRESS_H
#define TESSEL_ADDRESS_H

#include "tessel/ipc.h"

enum {
    TESSEL_ADDRESSES_MAX = 16 /* entries of a list; further addresses of an interface are left out */
};

/* Scope codes. Both 0 and 4 mean global: 0 in a record whose scope was never set, 4 when it was read from the
 * kernel. */
enum {
    TESSEL_SCOPE_UNSET = 0,
    TESSEL_SCOPE_HOST = 1,
    TESSEL_SCOPE_LINK = 2,
    TESSEL_SCOPE_SITE = 3,
    TESSEL_SCOPE_GLOBAL = 4
};

/* One address. */
typedef struct {
    uint32_t dwScope;     /* TESSEL_SCOPE_... */
    uint16_t wSinFamily;  /* 2 IPv4, 10 IPv6 */
    uint16_t wReserved;   /* 0 */
    uint8_t abyAddr[16];  /* network order; IPv4 in the first 4 bytes, the rest 0 */
    uint32_t dwPrefixLen; /* 0 to 32, IPv6 0 to 128 */
    uint32_t bTentative;  /* 1: IPv6 duplicate address detection (RFC 4862) is not finished */
    uint32_t bDynamic;    /* 1: IPv6 address learnt from a router advertisement */
} __attribute__((packed)) TNetIpAddr;
static_assert(sizeof(TNetIpAddr) == 36, "wire size");
static_assert(offsetof(TNetIpAddr, wSinFamily) == 4, "wire offset");
static_assert(offsetof(TNetIpAddr, abyAddr) == 8, "wire offset");
static_assert(offsetof(TNetIpAddr, dwPrefixLen) == 24, "wire offset");
static_assert(offsetof(TNetIpAddr, bTentative) == 28, "wire offset");
static_assert(offsetof(TNetIpAddr, bDynamic) == 32, "wire offset");

/* The addresses of one interface. */
typedef struct {
    uint32_t dwNum; /* valid entries, at most TESSEL_ADDRESSES_MAX */
    TNetIpAddr atIp[TESSEL_ADDRESSES_MAX];
} __attribute__((packed)) TNetIfaceIp;
static_assert(sizeof(TNetIfaceIp) == 580, "wire size");
static_assert(offsetof(TNetIfaceIp, atIp) == 4, "wire offset");

/* TESSEL_CMD_IPADDR_ADD and TESSEL_CMD_IPADDR_DEL; answered with a status. An entry of a family other than 2 and 10 is
 * answered with 0, and nothing is done. The kernel always chooses the scope. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
    TNetIpAddr tIp;
} __attribute__((packed)) TNetIpaddrChangeReq;
static_assert(sizeof(TNetIpaddrChangeReq) == 52, "wire size");
static_assert(offsetof(TNetIpaddrChangeReq, tIp) == 16, "wire offset");

/* TESSEL_CMD_IPADDR_FLUSH; answered with a status. IPv6 link-local addresses stay. */
typedef struct {
    uint16_t wSinFamily;               /* 2, 10 or 11 (both) */
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
} __attribute__((packed)) TNetIpaddrFlushReq;
static_assert(sizeof(TNetIpaddrFlushReq) == 18, "wire size");
static_assert(offsetof(TNetIpaddrFlushReq, achDevName) == 2, "wire offset");

/* TESSEL_CMD_IPADDR_SET; answered with a status. The list replaces the addresses of the family; IPv6 link-local ones
 * and those learnt from router advertisements stay. The payload may end after the last valid entry; one that ends
 * earlier changes nothing and is answered with -1. */
typedef struct {
    uint16_t wSinFamily;               /* 2, 10 or 11 (each entry to its family) */
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated */
    TNetIfaceIp tIfaceIp;
} __attribute__((packed)) TNetIpaddrSetReq;
static_assert(sizeof(TNetIpaddrSetReq) == 598, "wire size");
static_assert(offsetof(TNetIpaddrSetReq, tIfaceIp) == 18, "wire offset");

/* TESSEL_CMD_IPADDR_GET. */
typedef struct {
    uint16_t wSinFamily;               /* 2, 10 or 11 (both) */
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
} __attribute__((packed)) TNetIpaddrGetReq;
static_assert(sizeof(TNetIpaddrGetReq) == 18, "wire size");
static_assert(offsetof(TNetIpaddrGetReq, achDevName) == 2, "wire offset");

typedef struct {
    int32_t nResult; /* 0 or -1; after -1 the list holds what was read before the failure */
    TNetIfaceIp tIfaceIp;
} __attribute__((packed)) TNetIpaddrGetReply;
static_assert(sizeof(TNetIpaddrGetReply) == 584, "wire size");
static_assert(offsetof(TNetIpaddrGetReply, tIfaceIp) == 4, "wire offset");

/* One address as text. */
typedef struct {
    char addr[48]; /* NUL padded */
    int32_t prefix_len;
    uint32_t family; /* 0 IPv4, 1 IPv6 */
} __attribute__((packed)) ipaddr_show_addr;
static_assert(sizeof(ipaddr_show_addr) == 56, "wire size");
static_assert(offsetof(ipaddr_show_addr, prefix_len) == 48, "wire offset");
static_assert(offsetof(ipaddr_show_addr, family) == 52, "wire offset");

/* An Ethernet-like interface, mostly as text. */
typedef struct {
    int32_t mtu;  /* bytes */
    char mac[20]; /* "00:11:22:33:44:55", NUL padded */
    uint32_t num; /* valid entries, at most TESSEL_ADDRESSES_MAX, IPv4 before IPv6 */
    ipaddr_show_addr addr[TESSEL_ADDRESSES_MAX];
} __attribute__((packed)) ipaddr_show_info;
static_assert(sizeof(ipaddr_show_info) == 924, "wire size");
static_assert(offsetof(ipaddr_show_info, mac) == 4, "wire offset");
static_assert(offsetof(ipaddr_show_info, num) == 24, "wire offset");
static_assert(offsetof(ipaddr_show_info, addr) == 28, "wire offset");

/* TESSEL_CMD_IPADDR_SHOW. A payload of any other size gets no reply. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
} __attribute__((packed)) TNetIpaddrShowReq;
static_assert(sizeof(TNetIpaddrShowReq) == 16, "wire size");

typedef struct {
    int32_t nResult; /* 0 or -1 */
    ipaddr_show_info tInfo;
} __attribute__((packed)) TNetIpaddrShowReply;
static_assert(sizeof(TNetIpaddrShowReply) == 928, "wire size");
static_assert(offsetof(TNetIpaddrShowReply, tInfo) == 4, "wire offset");

#endif
