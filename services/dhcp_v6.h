// The DHCP client for IPv6: udhcpc6, its result file, its session.
#pragma once

#include "core/text_file.h"
#include "services/dhcp_client.h"
#include "services/dhcp_session.h"

// Start the worker and the client of a session, which needs a link-local address and waits some seconds for it, and end
// them. 0, or -1 with a log line; a client that had died is a success.
[[nodiscard]] i32 StartDhcpcV6(TDhcpcInfo* ptDhcpcInfo);
[[nodiscard]] i32 StopDhcpcV6(TDhcpcInfo* ptDhcpcInfo);

// Start the client of an interface, or ask the running one for a new lease; and end it. 0, kDhcpcNotRunning, or -1 with
// a log line.
[[nodiscard]] i32 LinuxDhcpcStartV6(const char* achDevName, u16 wDnsDynmic);
[[nodiscard]] i32 LinuxDhcpcStopV6(const char* achDevName);

// 0 when the interface has a link-local address, else -1.
[[nodiscard]] i32 CheckLinkAddrExist(const char* pchIfaceName);

// Reads the session's result file into its lease and *pnMsgType, which keeps its value when the file has no event. 0
// with the file's identity, or -1 with a log line.
[[nodiscard]] i32 DhcpcReadDhcpcConfFileV6(TDhcpcInfo* ptDhcpcInfo, u32* pnMsgType, tessel::FileIdentity* identity);

// Reads one line of it, which is cut into words. The route "0::0" stands for the interface's default gateway. 0, or -1
// with a log line.
[[nodiscard]] i32 ParseAddr(char* line, TNetDhcpcLease* lease, u32* pnMsgType);

namespace tessel {

// The client of an interface among all processes.
[[nodiscard]] inline InterfaceProcess ClientV6(const char* interfaceName) {
    return {.pattern = "udhcpc6", .word = interfaceName};
}

// The line that starts it. DNS servers are asked for unless wDnsDynmic is 0. False, with a log line, when it is too
// long.
[[nodiscard]] bool ComposeClientV6(CommandLine& line, const char* interfaceName, u16 wDnsDynmic);

}  // namespace tessel
