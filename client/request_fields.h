// What requests are filled with, and what must never be sent: the daemon puts names into command lines and answers 0 to
// some that mean nothing.
#pragma once

#include <algorithm>
#include <cstring>

#include "core/types.h"
#include "tessel/ipc.h"

namespace tessel {

// False for a name that is empty, not one word or too long.
template <std::size_t kFieldBytes>
[[nodiscard]] bool StoreName(char (&field)[kFieldBytes], const char* name) {
    if (name == nullptr || name[0] == '\0') return false;
    const std::size_t length = strlen(name);
    if (length >= kFieldBytes) return false;
    if (std::any_of(name, name + length, [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7f'; })) {
        return false;
    }
    memcpy(field, name, length);
    return true;
}

// Null stands for no name and leaves the field empty.
template <std::size_t kFieldBytes>
[[nodiscard]] bool StoreOptionalName(char (&field)[kFieldBytes], const char* name) {
    return name == nullptr || StoreName(field, name);
}

inline bool IsFamily(int family) {
    return family == TESSEL_FAMILY_INET || family == TESSEL_FAMILY_INET6;
}

inline bool IsFamilyOrBoth(int family) {
    return IsFamily(family) || family == TESSEL_FAMILY_BOTH;
}

inline u32 PrefixLengthMax(int family) {
    return family == TESSEL_FAMILY_INET ? 32 : 128;
}

}  // namespace tessel
