#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "sysdbg/debug_thread.h"
#include "sysdbg/file.h"
#include "sysdbg/format.h"
#include "sysdbg/handler.h"
#include "sysdbg/sysdbg.h"
#include "sysdbg/trace.h"

char sysdbg_log_file[128];

namespace {

// Hang-up, interrupt, quit, illegal instruction, trap, abort, bus error, floating-point error, segmentation fault,
// power failure, bad system call. Without SIGTERM: that is how the process is asked to end.
constexpr int kSignals[] = {1, 2, 3, 4, 5, 6, 7, 8, 11, 30, 31};

constexpr char kVersionFile[] = "/proc/veltrac/version";
constexpr std::string_view kVersionRecord = "name:sysdbg#-version:1.0.2-4a14bb47#-10:49:15-May  7 2022";
static_assert(kVersionRecord.size() == 57, "the record's readers rely on its length");

void WriteVersionRecord() {
    const sysdbg::File file(kVersionFile, O_RDWR);
    const ssize_t written = file.IsOpen() ? write(file.Get(), kVersionRecord.data(), kVersionRecord.size()) : 0;
    if (!file.IsOpen()) puts("Open file failed!");
    if (written == -1) puts("SYSDBG version exits!");  // the kernel module has the record already
    if (written < -1) puts("Write sysdbg version error!");
    // A fork would duplicate what is left in the buffer.
    fflush(stdout);
}

void SetFiles(const char* logPath, const char* crashFile) {
    sysdbg_log_file[0] = '\0';
    const bool hasLog = logPath != nullptr && strlen(logPath) < sizeof(sysdbg_log_file);
    if (hasLog && access(logPath, R_OK | W_OK) == 0) {
        sysdbg::FormatText(sysdbg_log_file, sizeof(sysdbg_log_file), "%s", logPath);
    }

    constexpr std::size_t kSuffixBytes = sizeof(".0");
    const bool hasFile =
        crashFile != nullptr && crashFile[0] != '\0' && strlen(crashFile) + kSuffixBytes <= sizeof(__crushdump_file[0]);
    for (int generation = 0; generation < 2; ++generation) {
        char(&path)[sizeof(__crushdump_file[0])] = __crushdump_file[generation];
        path[0] = '\0';
        if (hasFile) sysdbg::FormatText(path, sizeof(path), "%s.%d", crashFile, generation);
    }
}

}  // namespace

int SysdbgInitSignals(const int* signals, std::size_t count, const char* logPath, const char* crashFile,
                      std::int32_t limit, std::uint32_t flags) {
    SetFiles(logPath, crashFile);
    if (limit > 0) log_file_limit = static_cast<std::uint32_t>(limit) / 2;
    WriteVersionRecord();
    sysdbg::PrepareTraces();
    if (sysdbg::InstallHandler(signals, count) != 0) return -1;
    if ((flags & kSysdbgNoDebugThread) == 0) sysdbg::StartDebugThread();
    return 0;
}

int SysdbgInitSignal(int signal, const char* logPath, const char* crashFile, std::int32_t limit, std::uint32_t flags) {
    return SysdbgInitSignals(&signal, 1, logPath, crashFile, limit, flags);
}

int SysdbgInit(const char* logPath, const char* crashFile, std::int32_t limit, std::uint32_t flags) {
    return SysdbgInitSignals(kSignals, std::size(kSignals), logPath, crashFile, limit, flags);
}
