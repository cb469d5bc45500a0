// Start requests of the bond.
#pragma once

#include <string>
#include <vector>

#include "tests/support/daemon.h"

namespace tessel::test {

// A text behind its length.
inline std::string Sized(const std::string& text) {
    return Number(static_cast<u32>(text.size())) + text;
}

// The parts behind the total length.
inline std::string BondParts(const std::vector<std::string>& names, const std::string& active,
                             const std::string& path = "/x", u32 mode = 3) {
    const auto text = [](const std::string& name) { return Sized(name + '\0'); };
    std::string parts = Number(mode) + text(path) + Number(static_cast<u32>(names.size()));
    for (const std::string& name : names)
        parts += text(name);
    return parts + text(active);
}

inline std::string BondRequest(const std::string& parts) {
    return Number(static_cast<u32>(sizeof(u32) + parts.size())) + parts;
}

}  // namespace tessel::test
