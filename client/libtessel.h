/* libtessel: a typed call for every command of tessel_daemon, and a listener for its notifications.
 *
 * A call sends one request and waits for its reply, at most for the time that tessel_set_timeout_ms() sets. Calls keep
 * no state: any thread may call at any time. What a caller hands in stays the caller's; outputs are written on success
 * only. Every int that a function returns is a value of enum tessel_error unless its comment says otherwise. */
#ifndef TESSEL_LIBTESSEL_H
#define TESSEL_LIBTESSEL_H

#include <stddef.h>
#include <stdint.h>

#include "tessel/address.h"
#include "tessel/bond.h"
#include "tessel/broadcast_arp.h"
#include "tessel/command.h"
#include "tessel/conflict.h"
#include "tessel/dhcp.h"
#include "tessel/firewall.h"
#include "tessel/gateway.h"
#include "tessel/ipc.h"
#include "tessel/log.h"
#include "tessel/mac.h"
#include "tessel/mtu.h"
#include "tessel/ntp.h"
#include "tessel/ping.h"
#include "tessel/pppoe.h"
#include "tessel/priority.h"
#include "tessel/route.h"
#include "tessel/router.h"
#include "tessel/service.h"
#include "tessel/traceroute.h"
#include "tessel/traffic.h"
#include "tessel/web.h"

#define TESSEL_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

enum tessel_error {
    TESSEL_OK = 0,
    TESSEL_E_FAILED = -1,      /* the daemon answered that it failed */
    TESSEL_E_NOT_RUNNING = -2, /* nobody listens on the daemon's socket; known at once */
    TESSEL_E_TIMEOUT = -3,     /* no answer, or no event, in time; a request may still be carried out */
    TESSEL_E_NO_REPLY = -4,    /* closed without an answer: the daemon does not know the request or refuses its form */
    TESSEL_E_PROTOCOL = -5,    /* the reply was cut, or of another size than the command's */
    TESSEL_E_ARGUMENT = -6,    /* refused here; nothing was sent */
    TESSEL_E_SYSTEM = -7,      /* a system call failed; errno tells why */
    TESSEL_E_IN_USE = -8       /* somebody listens under that name */
};

/* A sentence without a full stop; never null, never freed. */
TESSEL_API const char* tessel_strerror(int error);

/* How long calls of this process wait for connecting, writing and reading each: 1 ms and more, initially 60000. Many
 * requests run tools, and the daemon serves one request at a time. */
TESSEL_API int tessel_set_timeout_ms(int timeout_ms);

/* The process that took this thread's last call, as the kernel tells for that very connection. 0: that call reached
 * nobody, there was none, or the process is not visible from here. */
TESSEL_API int tessel_daemon_pid(void);

/* 1 when a process listens on the daemon's socket, else 0. It is not connected to and does not notice. */
TESSEL_API int tessel_daemon_is_listening(void);

/* ---- Commands. Names of interfaces and services have 1 to 15 characters and no blanks. ---- */

/* The addresses of an interface. `family` is TESSEL_FAMILY_INET, _INET6 or _BOTH (IPv4 first). A list of
 * TESSEL_ADDRESSES_MAX entries may be cut. An interface without addresses gives an empty list; one that does not exist,
 * TESSEL_E_FAILED. */
TESSEL_API int tessel_addr_get(const char* interface, int family, TNetIfaceIp* list);

/* Add or delete one address; family (2 or 10), address and prefix length of the entry count. */
TESSEL_API int tessel_addr_add(const char* interface, const TNetIpAddr* address);
TESSEL_API int tessel_addr_del(const char* interface, const TNetIpAddr* address);

/* Removes the addresses of a family. IPv6: the global ones that were configured by hand; link-local ones stay. */
TESSEL_API int tessel_addr_flush(const char* interface, int family);

/* Replaces the addresses of a family, or of both, by the list; IPv6 link-local addresses and those learnt from router
 * advertisements stay. After TESSEL_E_FAILED the previous ones have been added again as far as possible. The entries
 * are of the family; TESSEL_FAMILY_BOTH takes either. */
TESSEL_API int tessel_addr_set(const char* interface, int family, const TNetIfaceIp* list);

/* MTU, hardware address and addresses as text, which may fill their fields without a NUL. Interfaces without an
 * Ethernet address (lo, ppp0) give TESSEL_E_FAILED. */
TESSEL_API int tessel_addr_show(const char* interface, ipaddr_show_info* info);

/* The hardware address, 6 bytes as on the wire. One whose first byte is 0x22 cannot be read: TESSEL_E_FAILED. */
TESSEL_API int tessel_mac_get(const char* interface, uint8_t mac[6]);
TESSEL_API int tessel_mac_set(const char* interface, const uint8_t mac[6]);

/* The largest packet in bytes. */
TESSEL_API int tessel_mtu_get(const char* interface, uint32_t* mtu);
TESSEL_API int tessel_mtu_set(const char* interface, uint32_t mtu);

/* Default gateways. `interface` may be null where it says so: the kernel then chooses, or the first one found counts.
 * `table` 0 is the main table. */

/* The first default route of an interface (or null). None: success with the zero address. `learnt`, which may be null,
 * becomes 1 when an IPv6 one stems from a router advertisement, else 0; the daemon does not tell so of other tables. */
TESSEL_API int tessel_gateway_get(const char* interface, int family, uint32_t table, TNetGateway* gateway, int* learnt);

/* Adds a default route. `interface` may be null for IPv4. Where there is one already IPv4 gives TESSEL_E_FAILED and
 * IPv6 replaces it, of the main table. The zero address is refused: see tessel_gateway_del(). */
TESSEL_API int tessel_gateway_set(const char* interface, const TNetGateway* gateway, uint32_t table);

/* Deletes the default route of an interface (or null: with IPv6 all of them). Where there is none IPv4 gives
 * TESSEL_E_FAILED and IPv6 TESSEL_OK. */
TESSEL_API int tessel_gateway_del(const char* interface, int family, uint32_t table);

/* The table of interface priorities; entries without a name may stand between others. */
TESSEL_API int tessel_priority_get(TNetPrioParamList* list);

/* Sets priorities, of 1 to TESSEL_PRIORITIES_MAX interfaces, none twice, metrics from 0. TESSEL_OK says that the daemon
 * took the list, not that every entry took: the first call since its start fixes the interfaces. Read it back. */
TESSEL_API int tessel_priority_set(const TNetPrioParamList* list);

/* The routes of the main table that have a gateway, default routes left out, of a family or of both (IPv4 first). A
 * list of TESSEL_ROUTES_MAX entries may be cut. */
TESSEL_API int tessel_route_get_all(int family, TNetAllRouteInfo* list);

/* Add or delete one route. `interface` may be null; the name inside the route does not count. Deletion does not look at
 * the metric. */
TESSEL_API int tessel_route_add(const char* interface, const TNetIpRouteParam* route, uint32_t table);
TESSEL_API int tessel_route_del(const char* interface, const TNetIpRouteParam* route, uint32_t table);

/* Gives a route of the main table its metric: deletes the one to its destination through its gateway, and adds it
 * again. The route's own name counts and may be empty. */
TESSEL_API int tessel_route_metric_set(const TNetIpRouteParam* route);

/* Add or delete the rule that sends all traffic to a table; the table is 1 or more. */
TESSEL_API int tessel_route_table_add(uint32_t table);
TESSEL_API int tessel_route_table_del(uint32_t table);

/* Add or delete a rule by source network (IPv4) and mark; numbers from 0, the table from 1. A rule with a preference is
 * deleted by that alone. */
TESSEL_API int tessel_rule_add(const TNetIpRule* rule);
TESSEL_API int tessel_rule_del(const TNetIpRule* rule);

/* Switches the reports of address conflicts of a family (2 or 10) on or off, for everybody: they go to whoever listens
 * under TESSEL_SOCKET_IP_CONFLICT or TESSEL_SOCKET_IPV6_CONFLICT, as TNetConflictReport. Listen before you switch them
 * on and until they are off: each report that nobody takes holds conflict detection up for 5 to 8 seconds. */
TESSEL_API int tessel_conflict_start(int family);
TESSEL_API int tessel_conflict_stop(int family);

/* The packet filter. `operation` is TESSEL_LIST_...; the lists' chains have to be there (tessel_chain_add()). Adding
 * what is there changes nothing; deleting what is not there gives TESSEL_E_FAILED. After a failure for both protocols
 * the one of IPv4 may have been made. */

/* An entry by source network or range, of family 2 or 10. */
TESSEL_API int tessel_ip_filter(int operation, const TNetIpFilter* filter);

/* An entry by hardware address, for IPv4 and IPv6. */
TESSEL_API int tessel_mac_filter(int operation, const uint8_t mac[6]);

/* An entry by both; an IPv6 address stands for the /32 network that it lies in. */
TESSEL_API int tessel_ip_mac_filter(int operation, const uint8_t mac[6], const char* address);

/* Lets INPUT jump to a list, TESSEL_FILTER_...; empties the other list of its families, whatever the outcome. */
TESSEL_API int tessel_filter_enable(int list);

/* Unhooks a list and empties it. TESSEL_E_FAILED also when it was not enabled. */
TESSEL_API int tessel_filter_disable(int list);

/* Creates a chain; `protocols` is TESSEL_PROTOCOL_..., the name has 1 to 28 characters and no blanks. */
TESSEL_API int tessel_chain_add(int protocols, const char* name);

/* What becomes of echo requests, TESSEL_ICMP_...; the chain "icmppacket" has to be there. */
TESSEL_API int tessel_icmp_filter(int type);

/* Adds or deletes (TESSEL_PORT_ADD, TESSEL_PORT_DEL) rules by port. */
TESSEL_API int tessel_port_filter(int operation, const TNetPortFilter* filter);

/* Save or restore the rules below a base path of at most 511 characters. The daemon hands "> PATH" and "< PATH" to the
 * tools as words: those that refuse them make this TESSEL_E_FAILED, and no file is ever touched. */
TESSEL_API int tessel_firewall_save(int protocols, const char* path);
TESSEL_API int tessel_firewall_restore(int protocols, const char* path);

/* Add or delete a permanent ARP entry of an IPv4 address; `interface` may be null. */
TESSEL_API int tessel_arp_add(const char* interface, const char* address, const uint8_t mac[6]);
TESSEL_API int tessel_arp_del(const char* interface, const char* address);

/* Ends every process of a service with signal 9: "ssh", "telnetd", "ftpd" or the name of a process. TESSEL_E_FAILED
 * also when none runs. */
TESSEL_API int tessel_service_stop(const char* name);

/* The daemon's log level: above 1 errors, above 3 information, 5 and above everything. It cannot be read back. */
TESSEL_API int tessel_log_level_set(int32_t level);

/* Opens or closes log files; `code` is TESSEL_LOG_OPEN_LIB to TESSEL_LOG_CLOSE_BOTH. The library's file is this
 * process's own: what the calls here have to say goes there. Paths have at most 127 characters; null and "" mean
 * "/tmp/tessel_lib.log" and "/tmp/tessel_daemon.log". The daemon resolves its path in its own directory. Opening
 * truncates, closing takes a second. With a code for both files the library's comes first and stays as it then is when
 * the daemon fails. */
TESSEL_API int tessel_log_file(int code, const char* lib_path, const char* daemon_path);

/* Starts the announcer on eth0 that asks for `target` (IPv4, network order) in bursts of three ARP requests, every 180
 * to 240 seconds. While it runs another start changes nothing. */
TESSEL_API int tessel_arp_announce_start(uint32_t target);
TESSEL_API int tessel_arp_announce_stop(void);

/* Has the device's `ping` send `dwCount` echo requests, each when the one before has ended: an event of its kind,
 * TESSEL_EVENT_PING_..., comes of each to TESSEL_SOCKET_PING with the user id behind it ("ipc_ping_7"), none of a reply
 * that cannot be read. Listen first. TESSEL_E_FAILED also while the user's last one runs, and while
 * TESSEL_PINGS_MAX run. */
TESSEL_API int tessel_ping_start(const TNetPingStartReq* ping);
/* Ends it; TESSEL_OK also when there is none. One that could not go on has to be stopped before the next start. */
TESSEL_API int tessel_ping_stop(int32_t user_id);

/* Asks the routers behind an interface to advertise themselves, and has the IPv6 addresses and the gateway watched that
 * it learns from them: a TESSEL_EVENT_RA_CHANGED comes of each change to TESSEL_SOCKET_ROUTER_NOTIFY with the
 * interface, the user id and the pid behind it ("ipc_router_notify_eth0_7_1234"). That the gateway alone has gone is no
 * change. Where the interface is watched already the pid alone is taken over, and what is known is reported again.
 * TESSEL_ROUTER_WATCHES_MAX interfaces at most. */
TESSEL_API int tessel_router_start(const char* interface, int32_t user_id, int32_t pid);
/* TESSEL_OK also when the interface is not watched. */
TESSEL_API int tessel_router_stop(const char* interface);

/* Starts traffic statistics: one TESSEL_EVENT_TRAFFIC at the end of every `interval` seconds (1 and more) comes to
 * TESSEL_SOCKET_STAT. While they run another start changes nothing. After a stop the period that runs still has its
 * event. */
TESSEL_API int tessel_traffic_start(uint32_t interval);
TESSEL_API int tessel_traffic_stop(void);

/* Starts a DHCP client on an interface, or takes over the one that runs and has it renew its lease. Leases come to the
 * socket of the process `pid`: TESSEL_SOCKET_DHCPC with the interface and the pid behind it ("ipc_dhcpc_eth0_1234"),
 * for IPv6 TESSEL_SOCKET_DHCPCV6 with the interface, 6 and the pid ("ipc_dhcpcv6_eth0_6_1234"). Takes some seconds when
 * the client does not come up. `with_dns` says whether DNS servers are asked for (1 or 0); below 0 it is left to the
 * daemon, which asks for them. */
TESSEL_API int tessel_dhcpc_start(int family, const char* interface, int with_dns, int32_t pid);
/* The request that is meant for renewing a lease. The daemon answers it with TESSEL_E_FAILED and does nothing: start
 * the client again. */
TESSEL_API int tessel_dhcpc_renew(int family, const char* interface);
/* TESSEL_E_FAILED also for an IPv4 client that has died meanwhile. */
TESSEL_API int tessel_dhcpc_stop(int family, const char* interface);
/* Serves IPv4 addresses by DHCP on an interface, whose own address lies in the network that is served: `conf` has the
 * pool, prefix length, router and at most TESSEL_DHCP_DNS_MAX DNS servers (none: 8.8.8.8 is handed out). Eight
 * interfaces at most. TESSEL_E_FAILED also when the interface is served already. TESSEL_OK says that a server was
 * started, not that it could use the configuration. */
TESSEL_API int tessel_dhcpd_start(const char* interface, const TNetDhcpsConf* conf);

/* Ends the server of an interface; TESSEL_OK also when there is none. */
TESSEL_API int tessel_dhcpd_stop(const char* interface);

/* `is_serving` becomes 1 from a successful start to a stop, also when the server has ended by itself; else 0. */
TESSEL_API int tessel_dhcpd_status(const char* interface, int* is_serving);

/* Ends every process called udhcpd, whoever started it. */
TESSEL_API int tessel_dhcpd_stop_all(void);

/* Keeps the device's clocks in step with an NTP server, one of each family, which is asked every `interval` seconds (1
 * and more). Each try has its event on TESSEL_SOCKET_NTP or TESSEL_SOCKET_NTPV6. TESSEL_E_FAILED also when there is one
 * already: stop that first. */
TESSEL_API int tessel_ntp_start(const TNetGateway* server, uint32_t interval);

/* TESSEL_OK also when there is none. */
TESSEL_API int tessel_ntp_stop(int family);

/* TESSEL_OK when an NTP server has answered, which it is given 100 ms for; the clock stays as it is. */
TESSEL_API int tessel_ntp_check(const TNetGateway* server);

/* Dials a PPPoE link, `family` TESSEL_FAMILY_INET, _INET6 or _BOTH, or a second one where there is one already.
 * TESSEL_OK says that pppd was started, not that the link comes up. TESSEL_E_FAILED: a text that cannot be handed over
 * (tessel/pppoe.h), or all of them are too long together. */
TESSEL_API int tessel_pppoe_start(int family, const TNetPppoeConf* conf);

/* Ends one link of the family; of TESSEL_FAMILY_BOTH perhaps one of IPv6 alone. TESSEL_OK also when there is none. */
TESSEL_API int tessel_pppoe_stop(int family);

/* Joins `count` interfaces, 1 to TESSEL_BOND_INTERFACES_MAX, into bond0; `active` carries the traffic as long as its
 * link is up. They lose their addresses. `mode` is a number for the bonding driver. `path` has no effect; null is
 * empty. TESSEL_E_FAILED also when there is a bond already. */
TESSEL_API int tessel_bond_start(uint32_t mode, const char* const* interfaces, size_t count, const char* active,
                                 const char* path);

/* Undoes the bond: its interfaces are up then, without addresses. TESSEL_OK also when there is none. After
 * TESSEL_E_FAILED there still is one. */
TESSEL_API int tessel_bond_stop(void);

/* Start and stop the device's web server. TESSEL_E_FAILED also when it runs already and when none runs. */
TESSEL_API int tessel_web_start(void);
TESSEL_API int tessel_web_stop(void);

/* Traces the route to a target, at most TESSEL_TRACE_HOPS_MAX hops far, three probes to each. One event for each probe
 * comes to TESSEL_SOCKET_TRACEROUTE with the `id` behind it ("ipc_traceroute_1234"); see tessel_event_trace(). An id
 * and one of TESSEL_TRACES_MAX places are taken until tessel_traceroute_stop(), also when the trace has reached its
 * end: TESSEL_E_FAILED when there is none. Traces over IPv6 that run at one time may take each other's answers. */
TESSEL_API int tessel_traceroute_start(const TNetGateway* target, uint32_t max_hops, int32_t id);

/* Ends a trace at once, or gives its place back; TESSEL_OK also when there is none. */
TESSEL_API int tessel_traceroute_stop(int32_t id);

/* Any command: `size` bytes of request (at most 3072; null and 0: none), `reply_size` bytes of reply (null and 0: none
 * is waited for). The status within the reply is not looked at. `reply` is overwritten whatever the outcome. */
TESSEL_API int tessel_raw(uint32_t code, const void* request, size_t size, void* reply, size_t reply_size);

/* ---- Notifications ---- */

enum tessel_event_kind {
    TESSEL_EVENT_UNKNOWN = 0,
    TESSEL_EVENT_PING_REPLY,
    TESSEL_EVENT_PING_NO_REPLY,
    TESSEL_EVENT_PING_NO_OUTPUT,
    TESSEL_EVENT_PING_UNREACHABLE,
    TESSEL_EVENT_TRACE_ERROR,
    TESSEL_EVENT_TRACE_NO_REPLY,
    TESSEL_EVENT_TRACE_HOP,
    TESSEL_EVENT_TRACE_REACHED,
    TESSEL_EVENT_TRACE_UNREACHABLE,
    TESSEL_EVENT_TRACE_REFUSED,
    TESSEL_EVENT_DHCP_LEASE,
    TESSEL_EVENT_DHCP_FAILED,
    TESSEL_EVENT_DHCP_DECONFIGURED,
    TESSEL_EVENT_NTP_SYNCED,
    TESSEL_EVENT_NTP_FAILED,
    TESSEL_EVENT_IP_CONFLICT,
    TESSEL_EVENT_MAC_CONFLICT,
    TESSEL_EVENT_RA_CHANGED,
    TESSEL_EVENT_TRAFFIC
};

typedef struct {
    int kind;         /* enum tessel_event_kind, from the socket's name and `type` */
    const char* name; /* "ping_reply" and so on, "unknown" otherwise; never null, never freed */
    uint32_t type;    /* as the message carries it */
    uint32_t size;    /* valid bytes of `payload` */
    uint8_t payload[TESSEL_PAYLOAD_MAX];
} tessel_event;

/* What a TESSEL_EVENT_TRAFFIC says of one interface. */
typedef struct {
    int is_valid;      /* 1: it was there during the whole period; else everything here is 0 */
    int has_restarted; /* 1: a counter began anew within the period, and the rates say nothing */
    int64_t sent_bits_per_second;
    int64_t received_bits_per_second;
} tessel_traffic;

/* Reads the event into the entries of eth0, eth1 and eth2. TESSEL_E_ARGUMENT: it is another event. */
TESSEL_API int tessel_event_traffic(const tessel_event* event, tessel_traffic traffic[TESSEL_TRAFFIC_INTERFACES]);

/* Reads one of the three DHCP events. TESSEL_E_ARGUMENT: it is another. */
TESSEL_API int tessel_event_lease(const tessel_event* event, TNetDhcpcLease* lease);

/* Reads a TESSEL_EVENT_NTP_SYNCED: how many seconds the clock was off by; with IPv6 below 0 when it was slow.
 * TESSEL_E_ARGUMENT: it is another event. */
TESSEL_API int tessel_event_ntp(const tessel_event* event, int32_t* deviation);

/* Reads one of the four ping events; TTL and time count in a TESSEL_EVENT_PING_REPLY alone. TESSEL_E_ARGUMENT: it is
 * another. */
TESSEL_API int tessel_event_ping(const tessel_event* event, TNetPingResult* result);

/* Reads a TESSEL_EVENT_RA_CHANGED. TESSEL_E_ARGUMENT: it is another. */
TESSEL_API int tessel_event_router(const tessel_event* event, TNetRouterNotify* report);

/* Reads one of the six events of a trace. TESSEL_E_ARGUMENT: it is another. */
TESSEL_API int tessel_event_trace(const tessel_event* event, TNetTracerouteResult* result);

/* Owns a socket under "/tmp/". One thread at a time may use it. */
typedef struct tessel_listener tessel_listener;

enum tessel_listen_flag {
    TESSEL_LISTEN_TAKE = 1 /* take the name from whoever listens there; it gets no events any more */
};

/* Listens under a name of tessel/ipc.h, such as TESSEL_SOCKET_NTP. Without TESSEL_LISTEN_TAKE a name with a living
 * listener gives TESSEL_E_IN_USE; a file that a dead one left is replaced. */
TESSEL_API int tessel_listener_open(const char* name, unsigned flags, tessel_listener** listener);

/* For poll(): readable when tessel_listener_next() has something to do. Stays the listener's. */
TESSEL_API int tessel_listener_fd(const tessel_listener* listener);

/* 1 as long as the name leads to this listener; 0 once somebody took it: no more events come. */
TESSEL_API int tessel_listener_has_name(const tessel_listener* listener);

/* Waits for the next event; a negative time waits without end. TESSEL_E_TIMEOUT: none came. TESSEL_E_SYSTEM with EINTR:
 * a signal came first. Messages that are no events are passed over and counted; a sender that connects and stays silent
 * may prolong the wait by up to a second. */
TESSEL_API int tessel_listener_next(tessel_listener* listener, tessel_event* event, int timeout_ms);

/* How many connections brought no whole message: nothing, less than announced, or more than 3072 bytes announced. */
TESSEL_API unsigned long tessel_listener_malformed(const tessel_listener* listener);

/* Closes the listener and removes its files, unless somebody took the name meanwhile. Null is allowed. */
TESSEL_API void tessel_listener_close(tessel_listener* listener);

#ifdef __cplusplus
}
#endif

#endif
