#include "sysdbg/report.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "sysdbg/file.h"
#include "sysdbg/local_time.h"
#include "sysdbg/machine.h"
#include "sysdbg/maps.h"
#include "sysdbg/sysdbg.h"
#include "sysdbg/trace.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): the name that debugging tools look up
const char __sysdbg_version[] = "1.0.2.4a14bb47";

namespace sysdbg {

void WriteReport(int signal, const ucontext_t& context) {
    const auto thread = static_cast<pid_t>(syscall(SYS_gettid));
    char stat[256];
    ReadTaskFile(thread, "stat", stat, sizeof(stat));
    const CalendarTime now = LocalTime();

    SysdbgReport("\n=============== Exception Occur =================\n");
    SysdbgReport("Version: %s\n", __sysdbg_version);
    SysdbgReport("Thread id: %d\n", thread);
    SysdbgReport("Thread name:%s\n", NameInStat(stat));
    SysdbgReport("Signal num: %d\n", signal);
    SysdbgReport("Exception time: ");
    SysdbgReport("%04d-%02d-%02d %02d:%02d:%02d", now.year, now.month, now.day, now.hour, now.minute, now.second);
    SysdbgReport("\n=============CPU registers=============\n");
    WriteRegisters(context);
    WriteTraces(context, thread, kTraceExtbl | kTraceUnwind);
    SysdbgReport("\n--------Process [%d] Maps-------\n", getpid());
    WriteMaps(thread);
}

}  // namespace sysdbg
