#include "addr/mac.h"

#include <cstdlib>
#include <cstring>

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"

using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::IsLineWord;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kSet[] = "ifconfig ifconfig %s hw ether %x:%x:%x:%x:%x:%x";
constexpr char kShow[] = "ip ip link show dev %s";

constexpr std::size_t kMacBytes = 6;
constexpr i32 kWordMax = 256;

// Never accepted as a first byte: addresses that begin with it have always counted as unreadable.
constexpr u8 kRefusedFirstByte = 0x22;

// Reads six hexadecimal groups joined by colons; cuts `word`.
bool ReadMac(char* word, u8 (&mac)[kMacBytes], tessel::CallSite where) {
    char* rest = nullptr;
    char* group = strtok_r(word, ":", &rest);
    for (u8& byte : mac) {
        if (group == nullptr) return false;
        byte = static_cast<u8>(strtol(group, nullptr, 16));
        TESSEL_DBG_AT(where, "pchMac : %x", byte);
        if (mac[0] == kRefusedFirstByte) {
            TESSEL_ERR_AT(where, "strtol error");
            return false;
        }
        group = strtok_r(nullptr, ":", &rest);
    }
    return true;
}

}  // namespace

i32 MacaddrSet(const char* pchIfaceName, const u8* pbyMac) {
    TESSEL_PRT("pchIfaceName : %s", pchIfaceName);
    CommandLine command;
    if (!IsLineWord(pchIfaceName) || !ComposeCommand(command, kSet, pchIfaceName, pbyMac[0], pbyMac[1], pbyMac[2],
                                                     pbyMac[3], pbyMac[4], pbyMac[5])) {
        return -1;
    }
    return tessel::RunChange(command);
}

i32 MacaddrGet(const char* pchIfaceName, u8* pbyMac) {
    if (pchIfaceName == nullptr || pbyMac == nullptr) {
        TESSEL_ERR("pchIfaceName or ptNetIfaceMac is NULL!");
        return -1;
    }
    CommandLine command;
    if (!IsLineWord(pchIfaceName) || !ComposeCommand(command, kShow, pchIfaceName)) return -1;
    TESSEL_DBG("MacaddrGet cmd : %s", command.text);
    tessel::ToolOutput output;
    if (tessel::RunReader(command, output) != 0) return -1;
    char word[kWordMax + 1];
    if (TesselFindStrMatchHead(output.text, "link/ether", ' ', word, kWordMax) != 0) {
        TESSEL_ERR("FindStrMatchHead error!");
        TESSEL_ERR("FindStrMatchHead : %s", output.text);
        return -1;
    }
    TESSEL_DBG("mac : %s", word);
    u8 mac[kMacBytes] = {};
    if (!ReadMac(word, mac, tessel::CallSite::Current())) return -1;
    memcpy(pbyMac, mac, sizeof(mac));
    return 0;
}
