// Parts of a route command that are there or not.
#pragma once

#include <arpa/inet.h>

#include <optional>

#include "core/call_site.h"
#include "core/types.h"
#include "tessel/gateway.h"

namespace tessel {

// A number of a routing table; none: the main table, which commands do not name.
using RouteTable = std::optional<u32>;

// Where a route is meant to be. The clauses for it are " dev NAME" and " table N".
struct RoutePlace {
    const char* interfaceName = nullptr;  // null: the tool chooses, or looks at every interface
    RouteTable table;
};

struct Clause {
    char text[24] = {};
};

// " WORD NUMBER".
[[nodiscard]] Clause NumberClause(const char* word, i32 number);

struct PlaceClauses {
    Clause dev;
    Clause table;
};

// False, with a log line, for a name that is not one word or that no interface can have.
[[nodiscard]] bool ComposePlace(PlaceClauses& clauses, const RoutePlace& place, CallSite where);

// An address as the tools take it.
struct GatewayText {
    explicit GatewayText(const TNetGateway& gateway) {
        u8 address[sizeof(gateway.abyAddr)];
        __builtin_memcpy(address, gateway.abyAddr, sizeof(address));
        (void)inet_ntop(gateway.wSinFamily, address, text, sizeof(text));
    }
    char text[INET6_ADDRSTRLEN] = {};  // empty for an unknown family
};

// "-4" or "-6".
constexpr const char* FamilyOption(u16 family) {
    return family == TESSEL_FAMILY_INET6 ? "-6" : "-4";
}

}  // namespace tessel
