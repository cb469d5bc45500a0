// Changing the addresses of an interface.
//
// Every operation returns 0, or -1 or the executor's result with a log line. A name that is not one word is refused.
#pragma once

#include "core/types.h"
#include "tessel/address.h"

// Add or delete one address. The entry's family must be the function's; its scope is not used: `ip` chooses.
[[nodiscard]] i32 IpaddrAddV4(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr);
[[nodiscard]] i32 IpaddrAddV6(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr);
[[nodiscard]] i32 IpaddrDelV4(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr);
[[nodiscard]] i32 IpaddrDelV6(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr);

// By the entry's family; 0 for any other than 2 and 10, with nothing done.
[[nodiscard]] i32 IpaddrAdd(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr);
[[nodiscard]] i32 IpaddrDel(const char* pchIfaceName, const TNetIpAddr* ptNetIpAddr);

// Remove the addresses of a family. IPv6: the global ones configured by hand, or all global ones where `ip` cannot tell
// them apart; link-local addresses stay.
[[nodiscard]] i32 IpaddrFlushV4(const char* pchIfaceName);
[[nodiscard]] i32 IpaddrFlushV6(const char* pchIfaceName);

// Family 2, 10 or 11; a failed IPv4 flush leaves IPv6 alone.
[[nodiscard]] i32 IpaddrFlush(const char* pchIfaceName, u16 wSinFamily);

// Replace a family's addresses with the list, of which the first 16 entries count. If one cannot be added, the previous
// addresses are added again; new ones added before it stay beside them.
[[nodiscard]] i32 IpaddrV4Set(const char* pchIfaceName, const TNetIfaceIp* ptNetIfaceIp);
// Link-local addresses are neither deleted nor added; those learnt from router advertisements are not deleted.
[[nodiscard]] i32 IpaddrV6Set(const char* pchIfaceName, const TNetIfaceIp* ptNetIfaceIp);

// Family 2, 10, or 11: each entry to its own family, IPv6 only after IPv4 succeeded.
[[nodiscard]] i32 IpaddrSet(const char* pchIfaceName, u16 wSinFamily, const TNetIfaceIp* ptNetIfaceIp);
