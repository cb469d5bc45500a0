/* Static routes, the catch-all rules of routing tables, and policy rules. */
#ifndef TESSEL_ROUTE_H
#define TESSEL_ROUTE_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

enum { TESSEL_ROUTES_MAX = 10 };

/* One route through a gateway. Destination and gateway have the same family. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL padded */
    TNetGateway tDestIpNet;            /* destination network */
    TNetGateway tGateway;              /* next hop */
    int32_t nPrefixLen;                /* of the destination */
    int32_t nMetric;
} __attribute__((packed)) TNetIpRouteParam;
static_assert(sizeof(TNetIpRouteParam) == 64, "wire size");
static_assert(offsetof(TNetIpRouteParam, tDestIpNet) == 16, "wire offset");
static_assert(offsetof(TNetIpRouteParam, tGateway) == 36, "wire offset");
static_assert(offsetof(TNetIpRouteParam, nPrefixLen) == 56, "wire offset");
static_assert(offsetof(TNetIpRouteParam, nMetric) == 60, "wire offset");

/* TESSEL_CMD_ROUTE_ADD and TESSEL_CMD_ROUTE_DEL; answered with a status. The name inside the route is not used here.
 * Deletion ignores the metric. TESSEL_CMD_ROUTE_METRIC_SET carries only a TNetIpRouteParam: the route is deleted from
 * its interface and added again with its metric. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated; empty: the kernel chooses the interface */
    TNetIpRouteParam tRoute;
    uint32_t dwTable; /* may be left out of the payload; 0: the main table */
} __attribute__((packed)) TNetRouteReq;
static_assert(sizeof(TNetRouteReq) == 84, "wire size");
static_assert(offsetof(TNetRouteReq, tRoute) == 16, "wire offset");
static_assert(offsetof(TNetRouteReq, dwTable) == 80, "wire offset");

/* Routes of the main table that have a gateway; default routes are left out. */
typedef struct {
    uint32_t dwNum; /* valid entries, at most TESSEL_ROUTES_MAX; further routes are left out */
    TNetIpRouteParam atRoute[TESSEL_ROUTES_MAX];
} __attribute__((packed)) TNetAllRouteInfo;
static_assert(sizeof(TNetAllRouteInfo) == 644, "wire size");
static_assert(offsetof(TNetAllRouteInfo, atRoute) == 4, "wire offset");

/* TESSEL_CMD_ROUTE_GET_ALL. A family other than 2, 10 and 11 is answered with 0 and an empty list. */
typedef struct {
    uint16_t wSinFamily; /* 2, 10 or 11 (IPv4 first) */
} __attribute__((packed)) TNetRouteGetAllReq;
static_assert(sizeof(TNetRouteGetAllReq) == 2, "wire size");

typedef struct {
    int32_t nResult; /* 0 or -1; after -1 the list holds what was read before the failure */
    TNetAllRouteInfo tRoutes;
} __attribute__((packed)) TNetRouteGetAllReply;
static_assert(sizeof(TNetRouteGetAllReply) == 648, "wire size");
static_assert(offsetof(TNetRouteGetAllReply, tRoutes) == 4, "wire offset");

/* TESSEL_CMD_ROUTE_TABLE_ADD and TESSEL_CMD_ROUTE_TABLE_DEL: the rule that sends all traffic to a table; answered with
 * a status. */
typedef struct {
    uint32_t dwTable; /* 1 to 252; other numbers are passed on too, with a warning in the log */
} __attribute__((packed)) TNetRouteTableReq;
static_assert(sizeof(TNetRouteTableReq) == 4, "wire size");

/* TESSEL_CMD_RULE_ADD and TESSEL_CMD_RULE_DEL: packets from a source network with a mark use a table; answered with a
 * status. A rule with a preference is deleted by that alone. */
typedef struct {
    TNetGateway tSrcIpNet; /* source network; IPv4 only */
    int32_t nPrefixLen;    /* of the source network */
    int32_t nPref;         /* preference; 0: the kernel chooses one */
    int32_t nTable;
    int32_t nFwmark;
} __attribute__((packed)) TNetIpRule;
static_assert(sizeof(TNetIpRule) == 36, "wire size");
static_assert(offsetof(TNetIpRule, nPrefixLen) == 20, "wire offset");
static_assert(offsetof(TNetIpRule, nPref) == 24, "wire offset");
static_assert(offsetof(TNetIpRule, nTable) == 28, "wire offset");
static_assert(offsetof(TNetIpRule, nFwmark) == 32, "wire offset");

#endif
