#include "addr/address_text.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "addr/address.h"
#include "core/log.h"
#include "core/text.h"

namespace tessel {

namespace {

constexpr i32 kScopeWordMax = 20;
constexpr std::size_t kScopeMarksBytes = 48;  // how far behind "scope" an address's marks are looked for, with the NUL
constexpr i32 kShowWordMax = 100;

// Takes the marks that stand behind the scope of an IPv6 address.
void ReadMarks(const char* scope, const char* addressText, bool markTentative, TNetIpAddr& address) {
    char marks[kScopeMarksBytes] = {};
    strncpy(marks, scope, sizeof(marks) - 1);
    if (markTentative && strstr(marks, "tentative") != nullptr) {
        address.bTentative = 1;
        TESSEL_DBG("it's tentative address, mark it");
    }
    TESSEL_DBG("achScopeType = %s", marks);
    if (strstr(marks, "dynamic") != nullptr) {
        address.bDynamic = 1;
        TESSEL_DBG("it's ra address, ip %s ", addressText);
    }
}

bool LogUnreadable(const char* text) {
    TESSEL_ERR("FindStrMatchHead error!");
    TESSEL_ERR("FindStrMatchHead outbuf : %s!", text);
    return false;
}

void AppendShowAddress(const PrefixedAddress& address, u32 familyFlag, ipaddr_show_info& info) {
    ipaddr_show_addr entry{};
    memcpy(entry.addr, address.text, std::min(strlen(address.text), sizeof(entry.addr)));
    entry.prefix_len = address.prefixLength;
    entry.family = familyFlag;
    info.addr[info.num] = entry;
    info.num = info.num + 1;
}

bool AppendShowAddresses(const char* output, const AddressFamily& family, u32 familyFlag, ipaddr_show_info& info) {
    const char* position = output;
    while (info.num < TESSEL_ADDRESSES_MAX && (position = strstr(position, family.keyword)) != nullptr) {
        position += strlen(family.keyword);
        PrefixedAddress address;
        if (!ReadPrefixedAddress(position, kShowWordMax, address)) return false;
        AppendShowAddress(address, familyFlag, info);
    }
    return true;
}

}  // namespace

bool ReadPrefixedAddress(const char* position, i32 wordMax, PrefixedAddress& address) {
    if (TesselFindStrMatchHead(position, nullptr, ' ', address.text, wordMax) != 0) return false;
    const char* prefix = strchr(address.text, '/');
    if (prefix != nullptr) {
        address.prefixLength = atoi(prefix + 1);
        address.text[prefix - address.text] = '\0';
        return true;
    }
    // The prefix length of a point-to-point address stands at the peer's.
    constexpr char kPeer[] = " peer ";
    const char* peer = position + strlen(address.text);
    if (strncmp(peer, kPeer, strlen(kPeer)) != 0) return false;
    char peerWord[kAddressWordMax + 1];
    if (TesselFindStrMatchHead(peer + strlen(kPeer), nullptr, ' ', peerWord, wordMax) != 0) return false;
    prefix = strchr(peerWord, '/');
    if (prefix == nullptr) return false;
    address.prefixLength = atoi(prefix + 1);
    return true;
}

bool AppendAddresses(const char* output, const AddressFamily& family, bool markTentative, TNetIfaceIp& list) {
    const char* position = output;
    while (list.dwNum < TESSEL_ADDRESSES_MAX && (position = strstr(position, family.keyword)) != nullptr) {
        position += strlen(family.keyword);
        PrefixedAddress text;
        if (!ReadPrefixedAddress(position, kAddressWordMax, text)) return LogUnreadable(output);
        char scopeWord[kScopeWordMax + 1];
        if (TesselFindStrMatchHead(position, "scope", ' ', scopeWord, kScopeWordMax) != 0)
            return LogUnreadable(position);

        TNetIpAddr address{};
        address.wSinFamily = family.family;
        (void)inet_pton(family.family, text.text, address.abyAddr);  // a text that is no address leaves it zero
        address.dwPrefixLen = static_cast<u32>(text.prefixLength);
        if (family.family == TESSEL_FAMILY_INET6) {
            ReadMarks(strstr(position, "scope"), text.text, markTentative, address);
        }
        address.dwScope = ScopeStrToCode(scopeWord);
        list.atIp[list.dwNum] = address;
        list.dwNum = list.dwNum + 1;
    }
    return true;
}

bool ReadShowInfo(const char* output, ipaddr_show_info& info) {
    char mtu[kShowWordMax + 1];
    if (TesselFindStrMatchHead(output, "mtu", ' ', mtu, kShowWordMax) != 0) return false;
    info.mtu = atoi(mtu);
    TESSEL_DBG("ipaddr_show_info->mtu=%d", info.mtu);

    char mac[sizeof(info.mac) + 1] = {};
    if (TesselFindStrMatchHead(output, "link/ether", ' ', mac, sizeof(info.mac)) != 0) return false;
    memcpy(info.mac, mac, sizeof(info.mac));
    // The first six characters of the text, as numbers.
    TESSEL_DBG("ipaddr_show_info->mac:%x:%x:%x:%x:%x:%x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);

    return AppendShowAddresses(output, kInet, 0, info) && AppendShowAddresses(output, kInet6, 1, info);
}

}  // namespace tessel
