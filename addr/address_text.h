// Reading the text of `ip addr show`.
#pragma once

#include <cstddef>

#include "core/types.h"
#include "tessel/address.h"

namespace tessel {

// What stands for one family in the output: the word in front of an address, and the family's code.
struct AddressFamily {
    u16 family;
    const char* keyword;
};
constexpr AddressFamily kInet{TESSEL_FAMILY_INET, "inet "};
constexpr AddressFamily kInet6{TESSEL_FAMILY_INET6, "inet6 "};

constexpr std::size_t kAddressWordMax = 256;

// The word behind a keyword, taken apart.
struct PrefixedAddress {
    char text[kAddressWordMax + 1];
    i32 prefixLength;
};

// Reads "192.168.1.20/24", or "10.0.0.1 peer 10.0.0.2/32" of a point-to-point link, at `position`. False when the word
// is longer than `wordMax` or has no prefix length.
[[nodiscard]] bool ReadPrefixedAddress(const char* position, i32 wordMax, PrefixedAddress& address);

// Appends the addresses of one family, until the list is full. False, with a log line, at one that cannot be read.
[[nodiscard]] bool AppendAddresses(const char* output, const AddressFamily& family, bool markTentative,
                                   TNetIfaceIp& list);

// Reads MTU, MAC and addresses of both families. False when one of them is missing or cannot be read.
[[nodiscard]] bool ReadShowInfo(const char* output, ipaddr_show_info& info);

}  // namespace tessel
