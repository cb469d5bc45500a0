#include "client/ctl/values.h"

#include <arpa/inet.h>

#include <charconv>

namespace tessel::ctl {

std::optional<Network> ParseHost(std::string_view text) {
    const bool isIpv4 = text.find(':') == std::string_view::npos;
    Network network{.family = isIpv4 ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6};
    if (inet_pton(isIpv4 ? AF_INET : AF_INET6, std::string(text).c_str(), network.bytes.data()) != 1)
        return std::nullopt;
    network.length = network.FullLength();
    return network;
}

std::optional<Network> ParseNetwork(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    auto network = ParseHost(text.substr(0, slash));
    const auto length = ParseNumber(text.substr(slash + 1));
    if (!network || !length || *length > network->FullLength()) return std::nullopt;
    network->length = *length;
    return network;
}

std::optional<Range> ParseRange(std::string_view text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    const auto first = ParseHost(text.substr(0, dash));
    const auto last = ParseHost(text.substr(dash + 1));
    if (!first || !last || first->family != last->family || *first > *last) return std::nullopt;
    return Range{*first, *last};
}

std::optional<Mac> ParseMac(std::string_view text) {
    const std::string word(text);
    Mac mac{};
    int used = 0;
    const int groups = sscanf(word.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%n", &mac[0], &mac[1], &mac[2], &mac[3],
                              &mac[4], &mac[5], &used);
    if (groups != static_cast<int>(mac.size()) || static_cast<std::size_t>(used) != word.size()) return std::nullopt;
    return mac;
}

std::optional<u32> ParseNumber(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    u32 number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<u32> ParseSeconds(std::string_view text) {
    u32 unit = 1;
    if (text.ends_with('m')) unit = 60;
    if (text.ends_with('h')) unit = 60 * 60;
    if (unit != 1 || text.ends_with('s')) text.remove_suffix(1);
    const auto number = ParseNumber(text);
    if (!number || *number > ~u32{0} / unit) return std::nullopt;
    return *number * unit;
}

std::optional<PortList> ParsePorts(std::string_view text) {
    constexpr u32 kPortMax = 65535;
    PortList ports;
    for (const std::string_view piece : Split(text, ',')) {
        const std::size_t colon = piece.find(':');
        const bool isRange = colon != std::string_view::npos;
        const auto first = isRange && colon == 0 ? 0 : ParseNumber(piece.substr(0, colon));
        const auto last = isRange && colon + 1 == piece.size() ? kPortMax : ParseNumber(piece.substr(colon + 1));
        if (!first || !last || *first > *last || *last > kPortMax) return std::nullopt;
        ports.emplace_back(*first, *last);
    }
    return ports.empty() ? std::nullopt : std::optional(ports);
}

std::string HostText(const Network& network) {
    if (network.family == 0 || network.bytes == decltype(network.bytes){}) return "";
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(network.family == TESSEL_FAMILY_INET ? AF_INET : AF_INET6, network.bytes.data(), text, sizeof(text));
    return text;
}

std::string NetworkText(const Network& network) {
    if (network.family == 0) return "";
    const std::string host = HostText(network);
    const char* const zero = network.family == TESSEL_FAMILY_INET ? "0.0.0.0" : "::";
    return Format("{}/{}", host.empty() ? zero : host, network.length);
}

std::string MacText(const Mac& mac) {
    return Format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

std::string FamilyName(int family) {
    if (family == TESSEL_FAMILY_BOTH) return "both";
    return family == TESSEL_FAMILY_INET6 ? "inet6" : "inet";
}

Network Masked(Network network) {
    for (u32 bit = network.length; bit < network.bytes.size() * 8; ++bit)
        network.bytes[bit / 8] &= static_cast<u8>(~(0x80U >> bit % 8));
    return network;
}

Network LastOf(Network network) {
    for (u32 bit = network.length; bit < network.FullLength(); ++bit)
        network.bytes[bit / 8] |= static_cast<u8>(0x80U >> bit % 8);
    return network;
}

bool Covers(const Network& outer, Network inner) {
    if (outer.family != inner.family || outer.length > inner.length) return false;
    inner.length = outer.length;
    return Masked(inner) == Masked(outer);
}

TNetGateway GatewayOf(const Network& network) {
    TNetGateway record{};
    record.wSinFamily = static_cast<u16>(network.family);
    memcpy(record.abyAddr, network.bytes.data(), network.bytes.size());
    return record;
}

TNetIpAddr AddressOf(const Network& network) {
    TNetIpAddr record{};
    record.wSinFamily = static_cast<u16>(network.family);
    record.dwPrefixLen = network.length;
    memcpy(record.abyAddr, network.bytes.data(), network.bytes.size());
    return record;
}

Network HostOf(const TNetGateway& record) {
    Network network{.family = record.wSinFamily == TESSEL_FAMILY_INET6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET};
    memcpy(network.bytes.data(), record.abyAddr, network.bytes.size());
    network.length = network.FullLength();
    return network;
}

Network NetworkOf(const TNetGateway& record, i32 length) {
    Network network = HostOf(record);
    network.length = static_cast<u32>(length);
    return network;
}

Network NetworkOf(const TNetIpAddr& record) {
    Network network{.family = record.wSinFamily};
    memcpy(network.bytes.data(), record.abyAddr, network.bytes.size());
    network.length = record.dwPrefixLen;
    return network;
}

}  // namespace tessel::ctl
