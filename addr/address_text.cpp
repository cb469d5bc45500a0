#include "addr/address_text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "addr/address.h"
#include "core/log.h"
#include "core/text.h"

namespace tessel {

namespace {

constexpr i32 kAddressWordMax = 256;
constexpr i32 kScopeWordMax = 20;
constexpr std::size_t kScopeMarksBytes = 48;  // how far after "scope" an address's marks are looked for, with the NUL
constexpr i32 kShowWordMax = 100;

// The word after a keyword, taken apart.
struct PrefixedAddress {
    char text[kAddressWordMax + 1];
    i32 prefixLength;
};

// Cuts "192.168.1.20/24" at its slash. False when there is none.
bool CutPrefix(char* word, i32& prefixLength) {
    char* const slash = strchr(word, '/');
    if (slash == nullptr) return false;
    *slash = '\0';
    prefixLength = atoi(slash + 1);
    return true;
}

// Reads "192.168.1.20/24", or "10.0.0.1 peer 10.0.0.2/32" of a point-to-point link, where the peer's has the prefix
// length. False when the word is longer than `wordMax` or has no prefix length.
bool ReadPrefixedAddress(const char* position, i32 wordMax, PrefixedAddress& address) {
    if (TesselFindStrMatchHead(position, nullptr, ' ', address.text, wordMax) != 0) return false;
    const char* const rest = position + strlen(address.text);
    if (CutPrefix(address.text, address.prefixLength)) return true;
    constexpr char kPeer[] = " peer ";
    char peer[kAddressWordMax + 1];
    return strncmp(rest, kPeer, strlen(kPeer)) == 0 &&
           TesselFindStrMatchHead(rest + strlen(kPeer), nullptr, ' ', peer, wordMax) == 0 &&
           CutPrefix(peer, address.prefixLength);
}

// Takes the marks that follow the scope of an IPv6 address.
void ReadMarks(const char* scope, const char* addressText, bool marksTentative, TNetIpAddr& address, CallSite where) {
    char marks[kScopeMarksBytes] = {};
    strncpy(marks, scope, sizeof(marks) - 1);
    if (marksTentative && strstr(marks, "tentative") != nullptr) {
        address.bTentative = 1;
        TESSEL_DBG_AT(where, "it's tentative address, mark it");
    }
    TESSEL_DBG_AT(where, "achScopeType = %s", marks);
    if (strstr(marks, "dynamic") != nullptr) {
        address.bDynamic = 1;
        TESSEL_DBG_AT(where, "it's ra address, ip %s ", addressText);
    }
}

bool LogUnreadable(const char* text, CallSite where) {
    TESSEL_ERR_AT(where, "FindStrMatchHead error!");
    TESSEL_ERR_AT(where, "FindStrMatchHead outbuf : %s!", text);
    return false;
}

bool AppendShowAddresses(const char* output, const AddressFamily& family, u32 familyFlag, ipaddr_show_info& info) {
    const char* position = output;
    while (info.num < TESSEL_ADDRESSES_MAX && (position = strstr(position, family.keyword)) != nullptr) {
        position += strlen(family.keyword);
        PrefixedAddress address;
        if (!ReadPrefixedAddress(position, kShowWordMax, address)) return false;
        ipaddr_show_addr entry{};
        memcpy(entry.addr, address.text, std::min(strlen(address.text), sizeof(entry.addr)));
        entry.prefix_len = address.prefixLength;
        entry.family = familyFlag;
        info.addr[info.num] = entry;
        ++info.num;
    }
    return true;
}

}  // namespace

void DropCutLine(ToolOutput& output) {
    if (!output.isCut) return;
    const char* const end = strrchr(output.text, '\n');
    output.text[end != nullptr ? end + 1 - output.text : 0] = '\0';
}

bool AppendAddresses(const char* output, const AddressFamily& family, bool marksTentative, TNetIfaceIp& list,
                     CallSite where) {
    const char* position = output;
    while (list.dwNum < TESSEL_ADDRESSES_MAX && (position = strstr(position, family.keyword)) != nullptr) {
        position += strlen(family.keyword);
        PrefixedAddress text;
        if (!ReadPrefixedAddress(position, kAddressWordMax, text)) return LogUnreadable(output, where);
        char scopeWord[kScopeWordMax + 1];
        if (TesselFindStrMatchHead(position, "scope", ' ', scopeWord, kScopeWordMax) != 0)
            return LogUnreadable(position, where);

        TNetIpAddr address{};
        address.wSinFamily = family.code;
        (void)inet_pton(family.code, text.text, address.abyAddr);  // text that is not an address leaves it zero
        address.dwPrefixLen = static_cast<u32>(text.prefixLength);
        if (family.code == TESSEL_FAMILY_INET6)
            ReadMarks(strstr(position, "scope"), text.text, marksTentative, address, where);
        address.dwScope = ScopeStrToCode(scopeWord);
        list.atIp[list.dwNum] = address;
        ++list.dwNum;
    }
    return true;
}

bool ReadShowInfo(const char* output, ipaddr_show_info& info, CallSite where) {
    char mtu[kShowWordMax + 1];
    if (TesselFindStrMatchHead(output, "mtu", ' ', mtu, kShowWordMax) != 0) return false;
    info.mtu = atoi(mtu);
    TESSEL_DBG_AT(where, "ipaddr_show_info->mtu=%d", info.mtu);

    char mac[sizeof(info.mac) + 1] = {};
    if (TesselFindStrMatchHead(output, "link/ether", ' ', mac, sizeof(info.mac)) != 0) return false;
    memcpy(info.mac, mac, sizeof(info.mac));
    // The first six characters of the text, as numbers.
    TESSEL_DBG_AT(where, "ipaddr_show_info->mac:%x:%x:%x:%x:%x:%x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);

    return AppendShowAddresses(output, kInet, 0, info) && AppendShowAddresses(output, kInet6, 1, info);
}

}  // namespace tessel
