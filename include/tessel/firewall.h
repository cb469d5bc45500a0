/* Packet filter lists, static ARP entries, and saving the packet filter.
 *
 * Addresses are filtered by two chains, "whitelist" and "blacklist", that clients create. Enabling one of them makes
 * INPUT jump to it and empties the other. Every command here is answered with a status. */
#ifndef TESSEL_FIREWALL_H
#define TESSEL_FIREWALL_H

#include "tessel/gateway.h"
#include "tessel/ipc.h"

/* Which of the two packet filters a command is for. */
enum { TESSEL_PROTOCOL_IPV4 = 1, TESSEL_PROTOCOL_IPV6 = 2, TESSEL_PROTOCOL_BOTH = 3 };

/* What a list command does. A repeated add changes nothing. */
enum {
    TESSEL_LIST_WHITE_ADD = 1,
    TESSEL_LIST_WHITE_DEL = 2,
    TESSEL_LIST_BLACK_ADD = 3, /* matching packets are also logged */
    TESSEL_LIST_BLACK_DEL = 4
};

/* TESSEL_CMD_IP_FILTER's entry: the network tStart/dwPrefixLen, or the range tStart to tEnd when tEnd's address is not
 * all zeros. */
typedef struct {
    uint8_t abyUnused1[4];
    TNetGateway tStart; /* its family is the entry's */
    uint32_t dwPrefixLen;
    uint8_t abyUnused2[12];
    TNetGateway tEnd; /* only its address is read */
    uint8_t abyUnused3[24];
} __attribute__((packed)) TNetIpFilter;
static_assert(sizeof(TNetIpFilter) == 84, "wire size");
static_assert(offsetof(TNetIpFilter, tStart) == 4, "wire offset");
static_assert(offsetof(TNetIpFilter, dwPrefixLen) == 24, "wire offset");
static_assert(offsetof(TNetIpFilter, tEnd) == 40, "wire offset");

/* TESSEL_CMD_IP_FILTER. */
typedef struct {
    uint32_t eCmd; /* TESSEL_LIST_... */
    TNetIpFilter tFilter;
} __attribute__((packed)) TNetIpFilterReq;
static_assert(sizeof(TNetIpFilterReq) == 88, "wire size");
static_assert(offsetof(TNetIpFilterReq, tFilter) == 4, "wire offset");

/* TESSEL_CMD_MAC_FILTER; for IPv4 and IPv6 packets. It is followed by the MAC address as text ("02:00:00:00:00:01"),
 * which ends with the payload or at an earlier NUL. */
typedef struct {
    uint32_t eCmd; /* TESSEL_LIST_... */
} __attribute__((packed)) TNetMacFilterReq;
static_assert(sizeof(TNetMacFilterReq) == 4, "wire size");

/* TESSEL_CMD_IP_AND_MAC_FILTER: packets of one address from one MAC. It is followed by the IPv4 or IPv6 address as
 * text, which ends with the payload or at an earlier NUL. An IPv6 address means the whole /32 network that contains
 * it. */
typedef struct {
    uint32_t eCmd;   /* TESSEL_LIST_... */
    char achMac[17]; /* as text; needs no NUL */
} __attribute__((packed)) TNetIpMacFilterReq;
static_assert(sizeof(TNetIpMacFilterReq) == 21, "wire size");
static_assert(offsetof(TNetIpMacFilterReq, achMac) == 4, "wire offset");

/* TESSEL_CMD_FILTER_ENABLE and TESSEL_CMD_FILTER_DISABLE. Disabling empties the list. */
enum {
    TESSEL_FILTER_WHITE_IPV4 = 1,
    TESSEL_FILTER_BLACK_IPV4 = 2,
    TESSEL_FILTER_WHITE_IPV6 = 3,
    TESSEL_FILTER_BLACK_IPV6 = 4,
    TESSEL_FILTER_WHITE_BOTH = 5,
    TESSEL_FILTER_BLACK_BOTH = 6
};

typedef struct {
    uint32_t eType; /* TESSEL_FILTER_... */
} __attribute__((packed)) TNetFilterSwitchReq;
static_assert(sizeof(TNetFilterSwitchReq) == 4, "wire size");

/* TESSEL_CMD_CHAIN_ADD. It is followed by the chain's name, which ends with the payload or at an earlier NUL. For the
 * chain "icmppacket", INPUT gets a jump to it immediately, for both protocols. */
typedef struct {
    uint16_t wIpType; /* TESSEL_PROTOCOL_... */
} __attribute__((packed)) TNetChainAddReq;
static_assert(sizeof(TNetChainAddReq) == 2, "wire size");

/* TESSEL_CMD_ICMP_FILTER: whether echo requests are answered. Replaces the previous setting of its protocols. */
enum {
    TESSEL_ICMP_ALLOW_IPV4 = 1,
    TESSEL_ICMP_DROP_IPV4 = 2,
    TESSEL_ICMP_ALLOW_IPV6 = 3,
    TESSEL_ICMP_DROP_IPV6 = 4,
    TESSEL_ICMP_ALLOW_BOTH = 5,
    TESSEL_ICMP_DROP_BOTH = 6
};

typedef struct {
    uint32_t eType; /* TESSEL_ICMP_... */
} __attribute__((packed)) TNetIcmpFilterReq;
static_assert(sizeof(TNetIcmpFilterReq) == 4, "wire size");

enum { TESSEL_PORT_ADD = 1, TESSEL_PORT_DEL = 2 };
enum { TESSEL_PORT_TCP = 1, TESSEL_PORT_UDP = 2 };
enum { TESSEL_PORT_SOURCE = 1, TESSEL_PORT_DESTINATION = 2 };
enum { TESSEL_PORT_ACCEPT_IN = 1, TESSEL_PORT_DROP_IN = 2, TESSEL_PORT_ACCEPT_OUT = 3, TESSEL_PORT_DROP_OUT = 4 };

/* TESSEL_CMD_PORT_FILTER's entry. */
typedef struct {
    uint32_t eInet;     /* TESSEL_PROTOCOL_... */
    uint32_t eProtocol; /* TESSEL_PORT_TCP or TESSEL_PORT_UDP; any other number: both */
    uint32_t ePortType; /* TESSEL_PORT_SOURCE or TESSEL_PORT_DESTINATION */
    uint32_t eAction;   /* TESSEL_PORT_ACCEPT_IN ... */
    char achPorts[136]; /* "80" or "80,443" or "ssh", NUL terminated */
} __attribute__((packed)) TNetPortFilter;
static_assert(sizeof(TNetPortFilter) == 152, "wire size");
static_assert(offsetof(TNetPortFilter, eProtocol) == 4, "wire offset");
static_assert(offsetof(TNetPortFilter, ePortType) == 8, "wire offset");
static_assert(offsetof(TNetPortFilter, eAction) == 12, "wire offset");
static_assert(offsetof(TNetPortFilter, achPorts) == 16, "wire offset");

/* TESSEL_CMD_PORT_FILTER. */
typedef struct {
    uint32_t eCmd; /* TESSEL_PORT_ADD or TESSEL_PORT_DEL */
    TNetPortFilter tFilter;
} __attribute__((packed)) TNetPortFilterReq;
static_assert(sizeof(TNetPortFilterReq) == 156, "wire size");
static_assert(offsetof(TNetPortFilterReq, tFilter) == 4, "wire offset");

/* TESSEL_CMD_FIREWALL_SAVE and TESSEL_CMD_FIREWALL_RESTORE. It is followed by the files' base path, which ends with the
 * payload or at an earlier NUL. "-4" and "-6" are appended to it. */
typedef struct {
    uint32_t eIpType; /* TESSEL_PROTOCOL_... */
} __attribute__((packed)) TNetFirewallFileReq;
static_assert(sizeof(TNetFirewallFileReq) == 4, "wire size");

/* TESSEL_CMD_ARP_ADD and TESSEL_CMD_ARP_DEL: a permanent entry for an IPv4 address. */
typedef struct {
    char achDevName[TESSEL_NAME_SIZE]; /* NUL terminated; empty: the tool chooses the interface */
    char achMac[32];                   /* as text, NUL terminated; not read by the delete command */
    char achIp[64];                    /* as text, NUL terminated; no host name */
} __attribute__((packed)) ArpEntryInfo;
static_assert(sizeof(ArpEntryInfo) == 112, "wire size");
static_assert(offsetof(ArpEntryInfo, achMac) == 16, "wire offset");
static_assert(offsetof(ArpEntryInfo, achIp) == 48, "wire offset");

#endif
