/* libtessel: a typed call for every command of tessel_daemon, and a listener for its notifications.
 *
 * A call sends one request and waits for its reply, for at most the time set by tessel_set_timeout_ms(). Calls keep no
 * state: any thread may call at any time. Arguments stay the caller's; outputs are written only on success. Every int
 * that a function returns is a value of enum tessel_error unless its comment says otherwise; for a null pointer that is
 * TESSEL_E_ARGUMENT, unless the comment allows it. The pointer to a listener must be one that is open. */
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
    TESSEL_E_NOT_RUNNING = -2, /* nobody listens on the daemon's socket; reported immediately */
    TESSEL_E_TIMEOUT = -3,     /* no answer, or no event, in time; a request may still be carried out */
    TESSEL_E_NO_REPLY = -4,    /* closed without an answer: the daemon does not know the request or refuses its form */
    TESSEL_E_PROTOCOL = -5,    /* the reply was cut short or has the wrong size */
    TESSEL_E_ARGUMENT = -6,    /* refused here; nothing was sent */
    TESSEL_E_SYSTEM = -7,      /* a system call failed; errno says why */
    TESSEL_E_IN_USE = -8       /* somebody already listens under that name */
};

/* A sentence without a full stop; never null, never freed. */
TESSEL_API const char* tessel_strerror(int error);

/* How long calls of this process wait for connecting, for writing and for reading: at least 1 ms, initially 60000. Many
 * requests run tools, and the daemon serves one request at a time. */
TESSEL_API int tessel_set_timeout_ms(int timeout_ms);

/* The process that took this thread's last call, as the kernel reports for that connection. 0: that call reached
 * nobody, there was no call, or the process is not visible from here. */
TESSEL_API int tessel_daemon_pid(void);

/* 1 when a process listens on the daemon's socket, else 0. No connection is made, so the process does not notice. */
TESSEL_API int tessel_daemon_is_listening(void);

/* ---- Commands. Names of interfaces and services have 1 to 15 characters and no blanks. ---- */

/* The addresses of an interface. `family` is TESSEL_FAMILY_INET, _INET6 or _BOTH (IPv4 first). A list of
 * TESSEL_ADDRESSES_MAX entries may be incomplete. An interface without addresses gives an empty list; one that does not
 * exist, TESSEL_E_FAILED. */
TESSEL_API int tessel_addr_get(const char* interface, int family, TNetIfaceIp* list);

/* Add or delete one address; only the entry's family (2 or 10), address and prefix length matter. */
TESSEL_API int tessel_addr_add(const char* interface, const TNetIpAddr* address);
TESSEL_API int tessel_addr_del(const char* interface, const TNetIpAddr* address);

/* Removes the addresses of a family. IPv6: the global ones that were configured by hand; link-local ones stay. */
TESSEL_API int tessel_addr_flush(const char* interface, int family);

/* Replaces the addresses of a family, or of both, with the list; IPv6 link-local addresses and those learnt from router
 * advertisements stay. After TESSEL_E_FAILED the previous addresses have been restored as far as possible. The entries
 * must be of the family; TESSEL_FAMILY_BOTH takes either. */
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

/* Default gateways. `interface` may be null where noted: the kernel then chooses, or the first route found counts.
 * `table` 0 is the main table. */

/* The first default route of an interface (or null). If there is none: success with the zero address. `learnt`, which
 * may be null, becomes 1 when an IPv6 route comes from a router advertisement, else 0; the daemon does not report this
 * for other tables. */
TESSEL_API int tessel_gateway_get(const char* interface, int family, uint32_t table, TNetGateway* gateway, int* learnt);

/* Adds a default route. `interface` may be null for IPv4. If there already is one, IPv4 gives TESSEL_E_FAILED and IPv6
 * replaces it, in the main table. The zero address is refused: see tessel_gateway_del(). */
TESSEL_API int tessel_gateway_set(const char* interface, const TNetGateway* gateway, uint32_t table);

/* Deletes the default route of an interface (or null: with IPv6 all of them). If there is none, IPv4 gives
 * TESSEL_E_FAILED, and so does IPv6 with an interface in another table than the main one; else IPv6 gives TESSEL_OK. */
TESSEL_API int tessel_gateway_del(const char* interface, int family, uint32_t table);

/* The table of interface priorities; entries without a name may occur between others. */
TESSEL_API int tessel_priority_get(TNetPrioParamList* list);

/* Sets the priorities of 1 to TESSEL_PRIORITIES_MAX interfaces, none twice, with metrics from 0. TESSEL_OK says that
 * the daemon accepted the list, not that every entry took effect: the first call since its start decides which
 * interfaces the table holds. Read it back. */
TESSEL_API int tessel_priority_set(const TNetPrioParamList* list);

/* The routes of the main table that have a gateway, default routes left out, of a family or of both (IPv4 first). A
 * list of TESSEL_ROUTES_MAX entries may be incomplete. */
TESSEL_API int tessel_route_get_all(int family, TNetAllRouteInfo* list);

/* Add or delete one route. `interface` may be null; the name inside the route is ignored. Deletion ignores the
 * metric. */
TESSEL_API int tessel_route_add(const char* interface, const TNetIpRouteParam* route, uint32_t table);
TESSEL_API int tessel_route_del(const char* interface, const TNetIpRouteParam* route, uint32_t table);

/* Changes the metric of a route of the main table: deletes the route to this destination through this gateway and adds
 * it again. The name inside the route counts and may be empty. */
TESSEL_API int tessel_route_metric_set(const TNetIpRouteParam* route);

/* Add or delete the rule that sends all traffic to a table; the table is 1 or more. */
TESSEL_API int tessel_route_table_add(uint32_t table);
TESSEL_API int tessel_route_table_del(uint32_t table);

/* Add or delete a rule by source network (IPv4) and mark; numbers from 0, the table from 1. A rule with a preference is
 * deleted by that alone. */
TESSEL_API int tessel_rule_add(const TNetIpRule* rule);
TESSEL_API int tessel_rule_del(const TNetIpRule* rule);

/* Switches reports of address conflicts for a family (2 or 10) on or off, for everybody: they go to whoever listens
 * under TESSEL_SOCKET_IP_CONFLICT or TESSEL_SOCKET_IPV6_CONFLICT, as TNetConflictReport. Listen from before you switch
 * them on until they are off: each report that nobody takes delays conflict detection by 5 to 8 seconds. */
TESSEL_API int tessel_conflict_start(int family);
TESSEL_API int tessel_conflict_stop(int family);

/* The packet filter. `operation` is TESSEL_LIST_...; the lists' chains must exist (tessel_chain_add()). Adding an entry
 * that exists changes nothing; deleting one that does not gives TESSEL_E_FAILED. When a change for both protocols
 * fails, the one for IPv4 may have been made. */

/* An entry by source network or range, of family 2 or 10. */
TESSEL_API int tessel_ip_filter(int operation, const TNetIpFilter* filter);

/* An entry by hardware address, for IPv4 and IPv6. */
TESSEL_API int tessel_mac_filter(int operation, const uint8_t mac[6]);

/* An entry by both; an IPv6 address stands for the /32 network that contains it. */
TESSEL_API int tessel_ip_mac_filter(int operation, const uint8_t mac[6], const char* address);

/* Makes INPUT jump to a list (TESSEL_FILTER_...) and empties the other list of its families, whatever the outcome. */
TESSEL_API int tessel_filter_enable(int list);

/* Unhooks a list and empties it. TESSEL_E_FAILED also when it was not enabled. */
TESSEL_API int tessel_filter_disable(int list);

/* Creates a chain; `protocols` is TESSEL_PROTOCOL_..., the name has 1 to 28 characters and no blanks. */
TESSEL_API int tessel_chain_add(int protocols, const char* name);

/* Whether echo requests are answered (TESSEL_ICMP_...); the chain "icmppacket" must exist. */
TESSEL_API int tessel_icmp_filter(int type);

/* Adds or deletes (TESSEL_PORT_ADD, TESSEL_PORT_DEL) rules by port. */
TESSEL_API int tessel_port_filter(int operation, const TNetPortFilter* filter);

/* Save or restore the rules below a base path of at most 511 characters. The daemon passes "> PATH" and "< PATH" to the
 * tools as words: if a tool refuses them, the result is TESSEL_E_FAILED, and no file is ever touched. */
TESSEL_API int tessel_firewall_save(int protocols, const char* path);
TESSEL_API int tessel_firewall_restore(int protocols, const char* path);

/* Add or delete a permanent ARP entry for an IPv4 address; `interface` may be null. */
TESSEL_API int tessel_arp_add(const char* interface, const char* address, const uint8_t mac[6]);
TESSEL_API int tessel_arp_del(const char* interface, const char* address);

/* Ends every process of a service with signal 9: "ssh", "telnetd", "ftpd" or the name of a process. TESSEL_E_FAILED
 * also when none runs. */
TESSEL_API int tessel_service_stop(const char* name);

/* The daemon's log level: above 1 errors, above 3 information, 5 and above everything. It cannot be read back. */
TESSEL_API int tessel_log_level_set(int32_t level);

/* Opens or closes log files; `code` is TESSEL_LOG_OPEN_LIB to TESSEL_LOG_CLOSE_BOTH. The library's file is this
 * process's own: what the calls here log goes there. Paths have at most 127 characters; null and "" mean
 * "/tmp/tessel_lib.log" and "/tmp/tessel_daemon.log". The daemon resolves its path in its own directory. Opening
 * truncates, closing takes a second. With a code for both files, the library's is handled first and stays that way if
 * the daemon fails. */
TESSEL_API int tessel_log_file(int code, const char* lib_path, const char* daemon_path);

/* Starts the announcer on eth0, which asks for `target` (IPv4, network order) in bursts of three ARP requests every 180
 * to 240 seconds. While it runs, another start changes nothing. */
TESSEL_API int tessel_arp_announce_start(uint32_t target);
TESSEL_API int tessel_arp_announce_stop(void);

/* Has the device's `ping` send `dwCount` echo requests, each after the one before has ended. The outcome of each is an
 * event TESSEL_EVENT_PING_... on TESSEL_SOCKET_PING followed by the user id ("ipc_ping_7"); a reply that cannot be read
 * gives none. Listen first. TESSEL_E_FAILED also while the user's previous ping runs or TESSEL_PINGS_MAX are
 * running. */
TESSEL_API int tessel_ping_start(const TNetPingStartReq* ping);
/* Ends it; TESSEL_OK also when there is none. One that could not continue must be stopped before the next start. */
TESSEL_API int tessel_ping_stop(int32_t user_id);

/* Asks the routers behind an interface to advertise themselves, and watches the IPv6 addresses and the gateway that it
 * learns from them: each change is a TESSEL_EVENT_RA_CHANGED on TESSEL_SOCKET_ROUTER_NOTIFY followed by the interface,
 * the user id and the pid ("ipc_router_notify_eth0_7_1234"). Losing only the gateway is not a change. If the interface
 * is already watched, only the pid is taken over, and what is known is reported again. TESSEL_ROUTER_WATCHES_MAX
 * interfaces at most. */
TESSEL_API int tessel_router_start(const char* interface, int32_t user_id, int32_t pid);
/* TESSEL_OK also when the interface is not watched. */
TESSEL_API int tessel_router_stop(const char* interface);

/* Starts traffic statistics: a TESSEL_EVENT_TRAFFIC goes to TESSEL_SOCKET_STAT at the end of every `interval` seconds
 * (at least 1). While they run, another start changes nothing. After a stop, the current period still has its event. */
TESSEL_API int tessel_traffic_start(uint32_t interval);
TESSEL_API int tessel_traffic_stop(void);

/* Starts a DHCP client on an interface, or takes over the running one and has it renew its lease. Leases go to the
 * socket of the process `pid`: TESSEL_SOCKET_DHCPC followed by the interface and the pid ("ipc_dhcpc_eth0_1234"), for
 * IPv6 TESSEL_SOCKET_DHCPCV6 followed by the interface, 6 and the pid ("ipc_dhcpcv6_eth0_6_1234"). Takes some seconds
 * when the client does not come up. `with_dns` says whether DNS servers are asked for (1 or 0); a negative value leaves
 * that to the daemon, which asks for them. */
TESSEL_API int tessel_dhcpc_start(int family, const char* interface, int with_dns, int32_t pid);
/* The request meant for renewing a lease. The daemon answers TESSEL_E_FAILED and does nothing: start the client
 * again. */
TESSEL_API int tessel_dhcpc_renew(int family, const char* interface);
/* TESSEL_E_FAILED also for an IPv4 client that has already died. */
TESSEL_API int tessel_dhcpc_stop(int family, const char* interface);
/* Serves IPv4 addresses by DHCP on an interface whose own address is in the network served: `conf` has the pool, prefix
 * length, router and at most TESSEL_DHCP_DNS_MAX DNS servers (none: 8.8.8.8 is handed out). Eight interfaces at most.
 * TESSEL_E_FAILED also when the interface is already served. TESSEL_OK says that a server was started, not that it
 * could use the configuration. */
TESSEL_API int tessel_dhcpd_start(const char* interface, const TNetDhcpsConf* conf);

/* Ends the server of an interface; TESSEL_OK also when there is none. */
TESSEL_API int tessel_dhcpd_stop(const char* interface);

/* `is_serving` becomes 1 from a successful start to a stop, even if the server has ended by itself; else 0. */
TESSEL_API int tessel_dhcpd_status(const char* interface, int* is_serving);

/* Ends every process called udhcpd, whoever started it. */
TESSEL_API int tessel_dhcpd_stop_all(void);

/* Keeps the device's clocks in step with an NTP server, one per family, which is asked every `interval` seconds (at
 * least 1). Each attempt brings an event on TESSEL_SOCKET_NTP or TESSEL_SOCKET_NTPV6. TESSEL_E_FAILED also when there
 * already is one: stop that first. */
TESSEL_API int tessel_ntp_start(const TNetGateway* server, uint32_t interval);

/* TESSEL_OK also when there is none. */
TESSEL_API int tessel_ntp_stop(int family);

/* TESSEL_OK when an NTP server answers within 100 ms; the clock stays as it is. */
TESSEL_API int tessel_ntp_check(const TNetGateway* server);

/* Dials a PPPoE link (`family` is TESSEL_FAMILY_INET, _INET6 or _BOTH), or a second one if there already is one.
 * TESSEL_OK says that pppd was started, not that the link comes up. TESSEL_E_FAILED: a text cannot be passed on
 * (tessel/pppoe.h), or all of them together are too long. */
TESSEL_API int tessel_pppoe_start(int family, const TNetPppoeConf* conf);

/* Ends one link of the family; for TESSEL_FAMILY_BOTH possibly an IPv6-only one. TESSEL_OK also when there is none. */
TESSEL_API int tessel_pppoe_stop(int family);

/* Joins `count` interfaces, 1 to TESSEL_BOND_INTERFACES_MAX, into bond0; `active` carries the traffic as long as its
 * link is up. The interfaces lose their addresses. `mode` is a number for the bonding driver. `path` has no effect;
 * null means empty. TESSEL_E_FAILED also when there already is a bond. */
TESSEL_API int tessel_bond_start(uint32_t mode, const char* const* interfaces, size_t count, const char* active,
                                 const char* path);

/* Undoes the bond and leaves its interfaces up, without addresses. TESSEL_OK also when there is none. After
 * TESSEL_E_FAILED the bond still exists. */
TESSEL_API int tessel_bond_stop(void);

/* Start and stop the device's web server. TESSEL_E_FAILED also for a start when it already runs, and for a stop when it
 * does not. */
TESSEL_API int tessel_web_start(void);
TESSEL_API int tessel_web_stop(void);

/* Traces the route to a target, at most TESSEL_TRACE_HOPS_MAX hops away, with three probes per hop. One event per probe
 * goes to TESSEL_SOCKET_TRACEROUTE followed by the `id` ("ipc_traceroute_1234"); see tessel_event_trace(). The id and
 * one of TESSEL_TRACES_MAX places are taken until tessel_traceroute_stop(), even after the trace has reached its end:
 * TESSEL_E_FAILED when the id or every place is taken. Concurrent traces over IPv6 may take each other's answers. */
TESSEL_API int tessel_traceroute_start(const TNetGateway* target, uint32_t max_hops, int32_t id);

/* Ends a trace immediately, or frees the place of one that has ended; TESSEL_OK also when there is none. */
TESSEL_API int tessel_traceroute_stop(int32_t id);

/* Any command: `size` bytes of request (at most 3072; null and 0: none), `reply_size` bytes of reply (null and 0: do
 * not wait for one). The status within the reply is not examined. `reply` is overwritten whatever the outcome. */
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

/* What a TESSEL_EVENT_TRAFFIC says about one interface. */
typedef struct {
    int is_valid;      /* 1: it was there during the whole period; else everything here is 0 */
    int has_restarted; /* 1: a counter restarted within the period, and the rates mean nothing */
    int64_t sent_bits_per_second;
    int64_t received_bits_per_second;
} tessel_traffic;

/* Reads the event into the entries of eth0, eth1 and eth2. TESSEL_E_ARGUMENT for any other event. */
TESSEL_API int tessel_event_traffic(const tessel_event* event, tessel_traffic traffic[TESSEL_TRAFFIC_INTERFACES]);

/* Reads one of the three DHCP events. TESSEL_E_ARGUMENT for any other event. */
TESSEL_API int tessel_event_lease(const tessel_event* event, TNetDhcpcLease* lease);

/* Reads a TESSEL_EVENT_NTP_SYNCED: how many seconds the clock was off by; with IPv6 negative when it was slow.
 * TESSEL_E_ARGUMENT for any other event. */
TESSEL_API int tessel_event_ntp(const tessel_event* event, int32_t* deviation);

/* Reads one of the four ping events; TTL and time have a meaning only in a TESSEL_EVENT_PING_REPLY. TESSEL_E_ARGUMENT
 * for any other event. */
TESSEL_API int tessel_event_ping(const tessel_event* event, TNetPingResult* result);

/* Reads a TESSEL_EVENT_RA_CHANGED. TESSEL_E_ARGUMENT for any other event. */
TESSEL_API int tessel_event_router(const tessel_event* event, TNetRouterNotify* report);

/* Reads one of the six events of a trace. TESSEL_E_ARGUMENT for any other event. */
TESSEL_API int tessel_event_trace(const tessel_event* event, TNetTracerouteResult* result);

/* Owns a socket under "/tmp/". One thread at a time may use it. */
typedef struct tessel_listener tessel_listener;

enum tessel_listen_flag {
    TESSEL_LISTEN_TAKE = 1 /* take the name from whoever listens there, who then gets no more events */
};

/* Listens under a name from tessel/ipc.h, such as TESSEL_SOCKET_NTP. Without TESSEL_LISTEN_TAKE a name with a living
 * listener gives TESSEL_E_IN_USE; a file left by a dead one is replaced, even another user's if the caller is root. */
TESSEL_API int tessel_listener_open(const char* name, unsigned flags, tessel_listener** listener);

/* For poll(): readable when tessel_listener_next() has something to do. Stays the listener's. */
TESSEL_API int tessel_listener_fd(const tessel_listener* listener);

/* 1 as long as the name leads to this listener; 0 once somebody has taken it: no more events arrive. */
TESSEL_API int tessel_listener_has_name(const tessel_listener* listener);

/* Waits for the next event; a negative time waits for ever. TESSEL_E_TIMEOUT: none arrived. TESSEL_E_SYSTEM with EINTR:
 * a signal arrived first. Messages that are not events are skipped and counted; a sender that connects and stays silent
 * may prolong the wait by up to a second. */
TESSEL_API int tessel_listener_next(tessel_listener* listener, tessel_event* event, int timeout_ms);

/* How many connections delivered no complete message: nothing, less than announced, or more than 3072 bytes
 * announced. */
TESSEL_API unsigned long tessel_listener_malformed(const tessel_listener* listener);

/* Closes the listener and removes its files, unless somebody else has taken the name. Null is allowed. */
TESSEL_API void tessel_listener_close(tessel_listener* listener);

#ifdef __cplusplus
}
#endif

#endif
