// A step of the report that may fault or never end, made to end all the same.
#pragma once

namespace sysdbg {

// Runs step(argument) in a signal handler. When it faults, or has not returned after two seconds, it is left where it
// is and never resumed. True when it returned. Frames of the step must own nothing.
bool RunGuarded(void (*step)(void*), void* argument);

}  // namespace sysdbg
