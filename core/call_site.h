// Where a log line comes from. Shared helpers take one as their last parameter, so that a line names their caller.
#pragma once

namespace tessel {

struct CallSite {
    const char* function;
    int line;

    // As a default argument it is evaluated at the place of the call.
    static constexpr CallSite Current(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
        return {function, line};
    }
};

}  // namespace tessel
