// The addresses that an interface carries, as the `ip` tool prints them.
//
// The readers append to the list, at most 16 entries in all, and never clear it: callers zero it first. They return 0
// also when there is no address, or -1 (or the executor's result) with a log line; entries read before a failure stay.
// If there is more output than is kept, it is read up to the last whole line.
#pragma once

#include <algorithm>
#include <span>

#include "core/types.h"
#include "tessel/address.h"

// Scope codes and the words that `ip` has for them; a code is its row's index. Codes 0 and 4 both mean global: 0 is a
// scope that was never set, 4 one that was read.
struct TScopeMap {
    u32 dwScope;
    const char* pchName;
};
constexpr TScopeMap g_tScopeMap[] = {{TESSEL_SCOPE_UNSET, "global"},
                                     {TESSEL_SCOPE_HOST, "host"},
                                     {TESSEL_SCOPE_LINK, "link"},
                                     {TESSEL_SCOPE_SITE, "site"},
                                     {TESSEL_SCOPE_GLOBAL, "global"}};

// The code of a scope word, which more text may follow; 0 for an unknown one.
u32 ScopeStrToCode(const char* scopeWord);

// Appends the IPv4 addresses.
[[nodiscard]] i32 GetIpaddrV4(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp);

// Appends the IPv6 addresses. Tentative ones are marked only when dwNoTentative is 0; they are listed in any case.
[[nodiscard]] i32 GetIpaddrV6(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp, u32 dwNoTentative);

// Family 2 reads IPv4, 10 IPv6 with tentative marks, 11 IPv4 and then IPv6 (skipped if reading IPv4 fails).
[[nodiscard]] i32 IpaddrGet(const char* pchIfaceName, u16 wSinFamily, TNetIfaceIp* ptNetIfaceIp);

// The same without tentative marks.
[[nodiscard]] i32 IpaddrGetEx(const char* pchIfaceName, u16 wSinFamily, TNetIfaceIp* ptNetIfaceIp);

// Fills the text record of an Ethernet-like interface; `info` is zeroed by the caller. 0, or -1 with a log line, also
// for an interface without an Ethernet address: its addresses are then not read.
[[nodiscard]] i32 ipaddr_show_filter(const char* interfaceName, ipaddr_show_info* info);

namespace tessel {

// The entries of a list: at most 16, even if its count says more.
[[nodiscard]] inline std::span<const TNetIpAddr> AddressesOf(const TNetIfaceIp& list) {
    return {list.atIp, std::min<std::size_t>(list.dwNum, TESSEL_ADDRESSES_MAX)};
}

}  // namespace tessel
