#include "client/ctl/addresses.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstring>

#include "client/ctl/values.h"
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

std::vector<ShownAddress> ShowAddresses(const TNetIfaceIp& list) {
    std::vector<ShownAddress> addresses;
    for (u32 i = 0; i < list.dwNum; ++i)
        addresses.push_back(ShowAddress(list.atIp[i]));
    return addresses;
}

std::optional<TNetIpAddr> ParsePrefixedAddress(const std::string& text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) return std::nullopt;
    const std::string address = text.substr(0, slash);
    const bool isInet6 = address.find(':') != std::string::npos;
    const auto length = ParseNumber(text.substr(slash + 1));
    u8 bytes[16] = {};
    if (!length || *length > (isInet6 ? 128U : 32U) ||
        inet_pton(isInet6 ? AF_INET6 : AF_INET, address.c_str(), bytes) != 1) {
        return std::nullopt;
    }
    TNetIpAddr record{};
    record.wSinFamily = isInet6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET;
    record.dwPrefixLen = *length;
    memcpy(record.abyAddr, bytes, sizeof(bytes));
    return record;
}

AddressBytes NetworkAddress(AddressBytes address, u32 prefixLength) {
    constexpr u32 kByteBits = 8;
    for (u32 bit = prefixLength; bit < address.size() * kByteBits; ++bit) {
        address[bit / kByteBits] &= static_cast<u8>(~(0x80U >> bit % kByteBits));
    }
    return address;
}

std::optional<Mac> ParseMac(const std::string& text) {
    Mac mac{};
    int used = 0;
    const int groups = sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &mac[0], &mac[1], &mac[2], &mac[3],
                              &mac[4], &mac[5], &used);
    if (groups != static_cast<int>(mac.size()) || static_cast<std::size_t>(used) != text.size()) return std::nullopt;
    return mac;
}

std::string MacText(const Mac& mac) {
    return fmt::format("{:02x}", fmt::join(mac, ":"));
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
