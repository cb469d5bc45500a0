#include "client/ctl/addresses.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <cstring>

#include "core/text.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

using nlohmann::ordered_json;

ShownAddress ShowAddress(const TNetIpAddr& record) {
    u8 address[sizeof(record.abyAddr)];
    memcpy(address, record.abyAddr, sizeof(address));
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(record.wSinFamily == TESSEL_FAMILY_INET ? AF_INET : AF_INET6, address, text, sizeof(text));
    return {.text = text, .family = FamilyName(record.wSinFamily), .prefixLength = record.dwPrefixLen};
}

ShownAddress ShowAddress(const ipaddr_show_addr& record) {
    return {.text = FieldText(record.addr).Get(),
            .family = FamilyName(record.family == 0 ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6),
            .prefixLength = static_cast<u32>(record.prefix_len)};
}

std::string AddressText(const ShownAddress& address) {
    return fmt::format("{}/{}", address.text, address.prefixLength);
}

std::string AddressText(const std::vector<ShownAddress>& addresses) {
    std::string text;
    for (const ShownAddress& address : addresses)
        text += (text.empty() ? "" : "  ") + AddressText(address);
    return text;
}

ordered_json AddressJson(const ShownAddress& address) {
    return {{"address", address.text}, {"prefix_length", address.prefixLength}, {"family", address.family}};
}

ordered_json AddressJson(const std::vector<ShownAddress>& addresses) {
    ordered_json list = ordered_json::array();
    for (const ShownAddress& address : addresses)
        list.push_back(AddressJson(address));
    return list;
}

std::string FamilyName(u32 family) {
    switch (family) {
        case TESSEL_FAMILY_INET:
            return "inet";
        case TESSEL_FAMILY_INET6:
            return "inet6";
        case TESSEL_FAMILY_BOTH:
            return "both";
        default:
            return fmt::format("unknown ({})", family);
    }
}

}  // namespace tessel::ctl
