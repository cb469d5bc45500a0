// Runs steps of the report that may fault or never end.
#pragma once

namespace sysdbg {

// Runs step(argument) in a signal handler. When it faults, or has not returned after two seconds, it is abandoned. True
// when it returned. Its frames must own nothing, since no destructor runs when it is abandoned.
bool RunGuarded(void (*step)(void*), void* argument);

}  // namespace sysdbg
