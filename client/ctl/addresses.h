// Addresses as they are shown, whoever told them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "core/types.h"
#include "tessel/address.h"
#include <nlohmann/json_fwd.hpp>

namespace tessel::ctl {

struct ShownAddress {
    std::string text;
    std::string family;  // "inet", "inet6"
    u32 prefixLength;
};

[[nodiscard]] ShownAddress ShowAddress(const TNetIpAddr& record);
[[nodiscard]] ShownAddress ShowAddress(const ipaddr_show_addr& record);
[[nodiscard]] std::vector<ShownAddress> ShowAddresses(const TNetIfaceIp& list);

// From "192.168.1.20/24" or "2001:db8::5/64". Nothing for anything else: a length is always there, and fits.
[[nodiscard]] std::optional<TNetIpAddr> ParsePrefixedAddress(const std::string& text);

// The bits of an address that its network has in common.
using AddressBytes = std::array<u8, 16>;
[[nodiscard]] AddressBytes NetworkAddress(AddressBytes address, u32 prefixLength);

using Mac = std::array<u8, 6>;

// From and to "02:00:00:00:00:01".
[[nodiscard]] std::optional<Mac> ParseMac(const std::string& text);
[[nodiscard]] std::string MacText(const Mac& mac);

// "192.168.1.20/24"; those of a list stand two blanks apart.
[[nodiscard]] std::string AddressText(const ShownAddress& address);
[[nodiscard]] std::string AddressText(const std::vector<ShownAddress>& addresses);

[[nodiscard]] nlohmann::ordered_json AddressJson(const ShownAddress& address);
[[nodiscard]] nlohmann::ordered_json AddressJson(const std::vector<ShownAddress>& addresses);

// "inet", "inet6", "both".
[[nodiscard]] std::string FamilyName(u32 family);

}  // namespace tessel::ctl
