// Addresses as they are shown, whoever told them.
#pragma once

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

// "192.168.1.20/24"; those of a list stand two blanks apart.
[[nodiscard]] std::string AddressText(const ShownAddress& address);
[[nodiscard]] std::string AddressText(const std::vector<ShownAddress>& addresses);

[[nodiscard]] nlohmann::ordered_json AddressJson(const ShownAddress& address);
[[nodiscard]] nlohmann::ordered_json AddressJson(const std::vector<ShownAddress>& addresses);

// "inet", "inet6", "both".
[[nodiscard]] std::string FamilyName(u32 family);

}  // namespace tessel::ctl
