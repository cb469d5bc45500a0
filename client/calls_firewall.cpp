// The packet filter's lists, chains, ports and files, and static ARP entries.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"
#include "core/text.h"

using tessel::CallForStatus;
using tessel::IsFamily;
using tessel::PrefixLengthMax;
using tessel::StoreName;
using tessel::StoreOptionalName;

namespace {

// iptables takes chain names of fewer characters than the kernel's XT_EXTENSION_MAXNAMELEN of 29.
constexpr std::size_t kChainNameBytes = 29;
// What the daemon's command lines have room for, with the words around it.
constexpr std::size_t kPathBytes = 512;
constexpr std::size_t kMacTextBytes = sizeof("02:00:00:00:00:01");

bool IsListOperation(int operation) {
    return operation >= TESSEL_LIST_WHITE_ADD && operation <= TESSEL_LIST_BLACK_DEL;
}

bool IsProtocols(int protocols) {
    return protocols >= TESSEL_PROTOCOL_IPV4 && protocols <= TESSEL_PROTOCOL_BOTH;
}

bool IsAddressText(int family, const char* text) {
    in6_addr bytes;
    return text != nullptr && inet_pton(family, text, &bytes) == 1;
}

struct MacText {
    explicit MacText(const u8* mac) {
        (void)std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                            mac[5]);
    }
    char text[kMacTextBytes];
};

// Requests that end with a text: without its NUL, which the daemon adds.
template <std::size_t kTextBytes, typename Head>
int CallWithText(u32 code, const Head& head, const char* text) {
    char checked[kTextBytes] = {};
    if (!StoreName(checked, text)) return TESSEL_E_ARGUMENT;
    u8 request[sizeof(Head) + kTextBytes];
    const std::size_t length = strlen(checked);
    memcpy(request, &head, sizeof(head));
    std::copy_n(checked, length, request + sizeof(head));
    return CallForStatus(code, request, sizeof(head) + length);
}

int SwitchFilter(u32 code, int list) {
    if (list < TESSEL_FILTER_WHITE_IPV4 || list > TESSEL_FILTER_BLACK_BOTH) return TESSEL_E_ARGUMENT;
    const TNetFilterSwitchReq request{.eType = static_cast<u32>(list)};
    return CallForStatus(code, request);
}

int CallWithPath(u32 code, int protocols, const char* path) {
    if (!IsProtocols(protocols)) return TESSEL_E_ARGUMENT;
    const TNetFirewallFileReq head{.eIpType = static_cast<u32>(protocols)};
    return CallWithText<kPathBytes>(code, head, path);
}

bool IsSendable(const TNetPortFilter& filter) {
    const tessel::FieldText ports(filter.achPorts);
    char checked[sizeof(filter.achPorts)] = {};
    return filter.eInet >= TESSEL_PROTOCOL_IPV4 && filter.eInet <= TESSEL_PROTOCOL_BOTH &&
           filter.ePortType >= TESSEL_PORT_SOURCE && filter.ePortType <= TESSEL_PORT_DESTINATION &&
           filter.eAction >= TESSEL_PORT_ACCEPT_IN && filter.eAction <= TESSEL_PORT_DROP_OUT &&
           StoreName(checked, ports.Get());
}

int ChangeArp(u32 code, const char* interface, const u8* mac, const char* address) {
    ArpEntryInfo request{};
    if (!IsAddressText(AF_INET, address) || !StoreName(request.achIp, address) ||
        !StoreOptionalName(request.achDevName, interface)) {
        return TESSEL_E_ARGUMENT;
    }
    if (mac != nullptr) memcpy(request.achMac, MacText(mac).text, kMacTextBytes);
    return CallForStatus(code, request);
}

}  // namespace

int tessel_ip_filter(int operation, const TNetIpFilter* filter) {
    if (!IsListOperation(operation) || filter == nullptr || !IsFamily(filter->tStart.wSinFamily) ||
        filter->dwPrefixLen > PrefixLengthMax(filter->tStart.wSinFamily)) {
        return TESSEL_E_ARGUMENT;
    }
    const TNetIpFilterReq request{.eCmd = static_cast<u32>(operation), .tFilter = *filter};
    return CallForStatus(TESSEL_CMD_IP_FILTER, request);
}

int tessel_mac_filter(int operation, const uint8_t mac[6]) {
    if (!IsListOperation(operation) || mac == nullptr) return TESSEL_E_ARGUMENT;
    const TNetMacFilterReq head{.eCmd = static_cast<u32>(operation)};
    return CallWithText<kMacTextBytes>(TESSEL_CMD_MAC_FILTER, head, MacText(mac).text);
}

int tessel_ip_mac_filter(int operation, const uint8_t mac[6], const char* address) {
    if (!IsListOperation(operation) || mac == nullptr ||
        (!IsAddressText(AF_INET, address) && !IsAddressText(AF_INET6, address))) {
        return TESSEL_E_ARGUMENT;
    }
    TNetIpMacFilterReq head{.eCmd = static_cast<u32>(operation), .achMac = {}};
    memcpy(head.achMac, MacText(mac).text, sizeof(head.achMac));
    return CallWithText<INET6_ADDRSTRLEN>(TESSEL_CMD_IP_AND_MAC_FILTER, head, address);
}

int tessel_filter_enable(int list) {
    return SwitchFilter(TESSEL_CMD_FILTER_ENABLE, list);
}

int tessel_filter_disable(int list) {
    return SwitchFilter(TESSEL_CMD_FILTER_DISABLE, list);
}

int tessel_chain_add(int protocols, const char* name) {
    if (!IsProtocols(protocols)) return TESSEL_E_ARGUMENT;
    const TNetChainAddReq head{.wIpType = static_cast<u16>(protocols)};
    return CallWithText<kChainNameBytes>(TESSEL_CMD_CHAIN_ADD, head, name);
}

int tessel_icmp_filter(int type) {
    if (type < TESSEL_ICMP_ALLOW_IPV4 || type > TESSEL_ICMP_DROP_BOTH) return TESSEL_E_ARGUMENT;
    const TNetIcmpFilterReq request{.eType = static_cast<u32>(type)};
    return CallForStatus(TESSEL_CMD_ICMP_FILTER, request);
}

int tessel_port_filter(int operation, const TNetPortFilter* filter) {
    const bool isOperation = operation == TESSEL_PORT_ADD || operation == TESSEL_PORT_DEL;
    if (!isOperation || filter == nullptr || !IsSendable(*filter)) return TESSEL_E_ARGUMENT;
    const TNetPortFilterReq request{.eCmd = static_cast<u32>(operation), .tFilter = *filter};
    return CallForStatus(TESSEL_CMD_PORT_FILTER, request);
}

int tessel_firewall_save(int protocols, const char* path) {
    return CallWithPath(TESSEL_CMD_FIREWALL_SAVE, protocols, path);
}

int tessel_firewall_restore(int protocols, const char* path) {
    return CallWithPath(TESSEL_CMD_FIREWALL_RESTORE, protocols, path);
}

int tessel_arp_add(const char* interface, const char* address, const uint8_t mac[6]) {
    return mac == nullptr ? TESSEL_E_ARGUMENT : ChangeArp(TESSEL_CMD_ARP_ADD, interface, mac, address);
}

int tessel_arp_del(const char* interface, const char* address) {
    return ChangeArp(TESSEL_CMD_ARP_DEL, interface, nullptr, address);
}
