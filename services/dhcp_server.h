// The DHCP server: one `udhcpd` for each interface that is served, eight at most, over IPv4.
//
// An interface is served from a successful start to a stop: a server that ends by itself goes unnoticed.
#pragma once

#include "core/exec.h"
#include "core/types.h"
#include "tessel/dhcp.h"

namespace tessel {
class DhcpServerTable;
}

// Which interfaces are served; null until it is made. It has its own lock.
extern tessel::DhcpServerTable* g_ptDaeDhcpSInfo;

// Makes the table. Without memory there is none, which is logged, and every start fails.
void DaemonDhcpsInit();

// Writes the configuration of the interface's server and starts it. 0, or -1 with a log line: it is already served,
// eight are, a family other than 2, a name that cannot be an interface's, a prefix length above 32, more than 64 DNS
// servers, files that cannot be written. Whether the server can serve is its own affair: nobody waits for it.
[[nodiscard]] i32 DhcpsStart(const char* interfaceName, u16 family, const TNetDhcpsConf* conf);

// Kills the interface's server and removes its files. 0, also when the interface is not served; -1 with a log line when
// the server cannot be killed: the interface then counts as served, and the files stay.
[[nodiscard]] i32 DhcpsStop(const char* interfaceName, u16 family);

// Stores 1 in *status when the interface is served over this family, else 0. Always 0.
i32 DhcpsGetStatus(const char* interfaceName, u16 family, i32* status);

// Kills whatever is called udhcpd and removes all configurations and pid files; leases stay. 0, also when there was
// nothing to kill; -1 with a log line without a table.
[[nodiscard]] i32 DhcpsStopAll();

// Writes the mask of a prefix length up to 32 as text ("255.255.255.0") into `buffer` and returns that. Null, with a
// log line, for a family other than 2.
const char* PrefixToString(u16 family, u32 prefixBits, char* buffer, u32 size);

namespace tessel {

// The line that starts the interface's server. False, with a log line, for what no server is started for.
[[nodiscard]] bool ComposeDhcpServer(CommandLine& line, const char* interfaceName, const TNetDhcpsConf& conf);

// Kills the interface's server. 0, also when none runs; else, with a log line, what the tool that kills answered.
[[nodiscard]] i32 EndDhcpServer(const char* interfaceName, CallSite where = CallSite::Current());

}  // namespace tessel
