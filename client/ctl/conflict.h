// Reports of address conflicts: one switch and one socket a family.
#pragma once

#include <string>
#include <vector>

#include "client/ctl/options.h"

namespace tessel::ctl {

struct ConflictFamily {
    int family;              // TESSEL_FAMILY_...
    const char* name;        // "inet"
    const char* option;      // "-4"
    const char* socketName;  // where the reports go
};

// Those that -4 and -6 ask for.
[[nodiscard]] std::vector<ConflictFamily> ConflictFamilies(const Options& options);

}  // namespace tessel::ctl
