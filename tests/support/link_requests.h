// Requests of PPPoE links and of the bond.
#pragma once

#include <array>

#include "tests/support/daemon.h"

namespace tessel::test {

inline std::string Dial(u16 family, const std::string& user, const std::string& password = "",
                        const std::string& service = "", const std::string& name = "eth0",
                        const std::array<u32, 7>& numbers = {}) {
    return std::string(Bytes(family))
        .append(Padded(user, 255) + Padded(password, 255) + Padded(service, 255))
        .append(Bytes(numbers))
        .append(Padded(name, 16));
}

// A text behind its length.
inline std::string Sized(const std::string& text) {
    return Number(static_cast<u32>(text.size())) + text;
}

// What stands behind the total length.
inline std::string BondParts(const std::vector<std::string>& names, const std::string& active, u32 mode = 3) {
    std::string parts = Number(mode) + Sized(std::string("\0", 1)) + Number(static_cast<u32>(names.size()));
    for (const std::string& name : names)
        parts += Sized(name + '\0');
    return parts + Sized(active + '\0');
}

inline std::string WithLength(const std::string& parts) {
    return Number(static_cast<u32>(sizeof(u32) + parts.size())) + parts;
}

}  // namespace tessel::test
