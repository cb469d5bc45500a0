#include "sysdbg/trace.h"

#include <dlfcn.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <span>

#include "sysdbg/file.h"
#include "sysdbg/format.h"
#include "sysdbg/guard.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/symbols.h"
#include "sysdbg/sysdbg.h"

namespace sysdbg {

namespace {

constexpr std::size_t kMaxFrames = 50;

struct UnwindLibrary {
    decltype(&_Unwind_Backtrace) backtrace;
    void* counterFunction;
};
UnwindLibrary library;

// The reporting thread's. Not on its stack, of which little may be left.
struct Trace {
    std::uintptr_t addresses[kMaxFrames];
    std::size_t count;
};
Trace trace;
Location location;

_Unwind_Reason_Code AddFrame(_Unwind_Context* frame, void*) {
    if (trace.count == kMaxFrames) return _URC_END_OF_STACK;
    const std::uintptr_t counter = FrameCounter(library.counterFunction, frame);
    if (counter == 0) return _URC_END_OF_STACK;
    trace.addresses[trace.count++] = counter;
    return _URC_NO_REASON;
}

void Backtrace(void*) {
    library.backtrace(&AddFrame, nullptr);
}

void WriteFrame(std::uintptr_t address, std::uintptr_t faultAddress) {
    Locate(address, address != faultAddress, location);
    SysdbgReport("<%s> (<%s> + %p) [%p]\n", location.module, location.function.name, AddressText(location.offset),
                 AddressText(address));
}

void WriteTrace(const char* method, std::uintptr_t faultAddress) {
    SysdbgReport("\n===========Call Trace(%s)==========\n", method);
    SysdbgReport("Obtained %zd stack frames:\n", static_cast<ssize_t>(trace.count));
    for (const std::uintptr_t address : std::span(trace.addresses, trace.count))
        WriteFrame(address, faultAddress);
}

bool IsOfThisProcess(pid_t thread) {
    char status[1024];
    ReadTaskFile(thread, "status", status, sizeof(status));
    constexpr char kField[] = "\nTgid:\t";
    const char* field = strstr(status, kField);
    if (field == nullptr) return false;
    const char* number = field + strlen(kField);
    pid_t process = 0;
    std::from_chars(number, number + strlen(number), process);
    return process == getpid();
}

}  // namespace

void PrepareTraces() {
    void* handle = dlopen("libgcc_s.so.1", RTLD_NOW);  // for as long as the process lives
    if (handle == nullptr) return;
    library.counterFunction = dlsym(handle, kCounterFunction);
    if (library.counterFunction == nullptr) return;
    library.backtrace = reinterpret_cast<decltype(&_Unwind_Backtrace)>(dlsym(handle, "_Unwind_Backtrace"));
    // The library sets itself up when it is first used: here rather than in a signal handler.
    if (library.backtrace != nullptr) Backtrace(nullptr);
}

void WriteTraces(const ucontext_t& context, pid_t thread, unsigned methods) {
    LoadMaps(thread);
    const std::uintptr_t faultAddress = ProgramCounter(context);
    if ((methods & kTraceExtbl) != 0 && IsOfThisProcess(thread)) {
        trace.count = 0;
        // The library trusts the stack and may take the loader's lock: what it found before it failed is written.
        if (library.backtrace != nullptr) (void)RunGuarded(&Backtrace, nullptr);
        WriteTrace("extbl", faultAddress);
    }
    if ((methods & kTraceUnwind) != 0) {
        trace.count = Unwind(context, trace.addresses);
        WriteTrace("unwind", faultAddress);
    }
    if ((methods & kTraceFramePointer) != 0) {
        trace.count = WalkFramePointers(context, trace.addresses);
        WriteTrace("fp", faultAddress);
    }
}

}  // namespace sysdbg
