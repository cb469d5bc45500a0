#include "route/clause.h"

#include <cstdio>

#include "core/log.h"
#include "core/text.h"

namespace tessel {

Clause NumberClause(const char* word, i32 number) {
    Clause clause;
    (void)snprintf(clause.text, sizeof(clause.text), " %s %d", word, number);
    return clause;
}

bool ComposePlace(PlaceClauses& clauses, const char* interfaceName, u32 table, CallSite where) {
    if (table != 0) clauses.table = NumberClause("table", static_cast<i32>(table));
    if (interfaceName == nullptr) return true;
    if (!IsLineWord(interfaceName, where)) return false;
    const int length = snprintf(clauses.dev.text, sizeof(clauses.dev.text), " dev %s", interfaceName);
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof(clauses.dev.text)) return true;
    TESSEL_ERR_AT(where, "the interface name [%s] is too long!", interfaceName);
    return false;
}

}  // namespace tessel
