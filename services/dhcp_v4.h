// The DHCP client for IPv4: udhcpc, its result file, its session.
#pragma once

#include "core/text_file.h"
#include "services/dhcp_client.h"
#include "services/dhcp_session.h"

// Events and items of the result file: code and word. A code is its row's index.
struct TDhcpcConfWord {
    u32 dwCode;
    const char* pchWord;
};
constexpr TDhcpcConfWord g_atDhcpcConfMsgType[] = {
    {0, "deconfig"}, {1, "leasesuccess"}, {2, "leasefail"}, {3, "nak"}, {4, "timeout"}};
constexpr TDhcpcConfWord g_atDhcpcConfEthItem[] = {
    {0, "local"}, {1, "subnet"}, {2, "router"}, {3, "dns"}, {4, "leasetime"}};

// Start the worker and the client of a session, and end them. 0, kDhcpcNotRunning from stopping when the client had
// died, or -1 with a log line.
[[nodiscard]] i32 StartDhcpcV4(TDhcpcInfo* ptDhcpcInfo);
[[nodiscard]] i32 StopDhcpcV4(TDhcpcInfo* ptDhcpcInfo);

// Start the client of an interface, or ask the running one for a new lease; and end it with its helpers. 0,
// kDhcpcNotRunning, or -1 with a log line.
[[nodiscard]] i32 LinuxDhcpcStart(const char* achDevName, u16 wDnsDynmic);
[[nodiscard]] i32 LinuxDhcpcStop(const char* achDevName);

// Reads a result file into the lease and *event, which keeps its value when the file has no event or the event
// "deconfig". 0 with the file's identity, or -1 with a log line when it cannot be opened.
[[nodiscard]] i32 DhcpcReadDhcpcConfFile(TNetDhcpcLease* lease, const char* path, u32* event,
                                         tessel::FileIdentity* identity);

// The prefix length of a mask in text; the lowest bit never counts, nor do bits beyond the 32nd: 255.255.255.255 gives
// 31, every IPv6 mask 0. 0 with a log line for text that is no mask, -1 with one for a mask with gaps.
[[nodiscard]] i32 MaskToPrefix(u16 wSinFamily, const char* achMaskString);

namespace tessel {

// The client of an interface among all processes.
[[nodiscard]] inline InterfaceProcess ClientV4(const char* interfaceName) {
    return {.pattern = "udhcpc -i", .word = interfaceName};
}

// The line that starts it. DNS servers are asked for unless wDnsDynmic is 0. False, with a log line, when it is too
// long.
[[nodiscard]] bool ComposeClientV4(CommandLine& line, const char* interfaceName, u16 wDnsDynmic);

// Reads the lines of a result file.
void ReadResultV4(LineReader& lines, TNetDhcpcLease& lease, u32& event);

}  // namespace tessel
