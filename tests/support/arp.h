// ARP as two hosts of a link speak it: the device on eth0, and a peer.
#pragma once

#include "core/types.h"
#include "tests/support/files.h"

namespace tessel::test {

inline const std::string kOwnMac = "\x02\0\0\0\0\0"s;
inline const std::string kPeerMac = "\x02\0\0\0\x01\x77"s;
inline const std::string kBroadcast(6, '\xff');
inline const std::string kNoMac(6, '\0');
inline const std::string kNoIp(4, '\0');
inline const std::string kFirst = "\xc0\xa8\x01\x14"s;                                 // 192.168.1.20
inline const std::string kSecond = "\xc0\xa8\x01\x15"s;                                // 192.168.1.21
inline const std::string kFirstInet6 = "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x20"s;  // 2001:db8::20

inline std::string Arp(char operation, const std::string& senderMac, const std::string& senderIp,
                       const std::string& targetMac, const std::string& targetIp) {
    return "\0\x01\x08\0\x06\x04\0"s + operation + senderMac + senderIp + targetMac + targetIp;
}

inline std::string Frame(const std::string& destination, const std::string& source, const std::string& arp) {
    return destination + source + "\x08\x06"s + arp;
}

// What listeners get of a conflict on eth0.
inline std::string Report(u16 family, const std::string& address) {
    return "eth0"s + std::string(12, '\0') + static_cast<char>(family) + "\0\0\0"s + address +
           std::string(16 - address.size(), '\0') + kOwnMac;
}

}  // namespace tessel::test
