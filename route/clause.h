// Optional parts of a route command.
#pragma once

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

struct Clause {
    char text[24] = {};
};

// " WORD NUMBER".
[[nodiscard]] Clause NumberClause(const char* word, i32 number);

// Where a route is meant to be.
struct PlaceClauses {
    Clause dev;    // " dev NAME"
    Clause table;  // " table N"
};

// A null name: the tool chooses the interface, or looks at all of them. Table 0: the main one, which commands do not
// name. False, with a log line, for a name that is not one word or that no interface can have.
[[nodiscard]] bool ComposePlace(PlaceClauses& clauses, const char* interfaceName, u32 table, CallSite where);

// What is done to a numbered table is logged under a name of its own.
[[nodiscard]] constexpr CallSite NamedFor(u32 table, const char* tableName, CallSite where = CallSite::Current()) {
    return {table == 0 ? where.function : tableName, where.line};
}

}  // namespace tessel
