#include "client/ctl/next_hop.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "client/ctl/addresses.h"
#include "client/ctl/kernel.h"
#include "core/types.h"

namespace tessel::ctl {

namespace {

AddressBytes BytesOf(const TNetGateway& host) {
    AddressBytes bytes;
    memcpy(bytes.data(), host.abyAddr, bytes.size());
    return bytes;
}

bool IsZero(const AddressBytes& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](u8 byte) { return byte == 0; });
}

// RFC 4291: fe80::/10, on every link.
bool IsLinkLocal(const TNetGateway& host) {
    return host.wSinFamily == TESSEL_FAMILY_INET6 && host.abyAddr[0] == 0xfe && (host.abyAddr[1] & 0xc0) == 0x80;
}

bool IsInNetworkOf(const ShownAddress& address, const TNetGateway& host) {
    const auto own = ParseHost(address.text);
    return own && own->wSinFamily == host.wSinFamily &&
           NetworkAddress(BytesOf(*own), address.prefixLength) == NetworkAddress(BytesOf(host), address.prefixLength);
}

}  // namespace

std::optional<TNetGateway> ParseHost(const std::string& text) {
    const bool isInet6 = text.find(':') != std::string::npos;
    AddressBytes bytes{};
    if (inet_pton(isInet6 ? AF_INET6 : AF_INET, text.c_str(), bytes.data()) != 1 || IsZero(bytes)) return std::nullopt;
    TNetGateway host{};
    host.wSinFamily = isInet6 ? TESSEL_FAMILY_INET6 : TESSEL_FAMILY_INET;
    memcpy(host.abyAddr, bytes.data(), bytes.size());
    return host;
}

std::optional<std::pair<TNetGateway, TNetGateway>> ParseRange(const std::string& text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos) return std::nullopt;
    const auto first = ParseHost(text.substr(0, dash));
    const auto last = ParseHost(text.substr(dash + 1));
    if (!first || !last || first->wSinFamily != last->wSinFamily || BytesOf(*first) > BytesOf(*last)) {
        return std::nullopt;
    }
    return std::pair(*first, *last);
}

std::string HostText(const TNetGateway& host) {
    const AddressBytes bytes = BytesOf(host);
    if (IsZero(bytes)) return "";
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(host.wSinFamily == TESSEL_FAMILY_INET ? AF_INET : AF_INET6, bytes.data(), text, sizeof(text));
    return text;
}

std::string WhyUnreachable(const TNetGateway& gateway, const std::string& interfaceName) {
    const bool isNamed = !interfaceName.empty();
    if (!isNamed && IsLinkLocal(gateway)) return HostText(gateway) + " is on every link: name the interface";
    std::vector<ShownAddress> addresses;
    for (const KernelLink& link : KernelLinks()) {
        if (isNamed && link.name != interfaceName) continue;
        if (isNamed && !link.isUp) return interfaceName + " is down";
        for (const ShownAddress& address : link.addresses) {
            if (IsInNetworkOf(address, gateway)) return "";
            if (address.family == FamilyName(gateway.wSinFamily)) addresses.push_back(address);
        }
    }
    std::string missing = isNamed ? MissingInterface(interfaceName) : "";
    if (!missing.empty() || IsLinkLocal(gateway)) return missing;
    return fmt::format("{} is in no network of {} ({})", HostText(gateway), isNamed ? interfaceName : "any interface",
                       addresses.empty() ? "it has no address" : AddressText(addresses));
}

}  // namespace tessel::ctl
