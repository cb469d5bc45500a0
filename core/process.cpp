#include "core/process.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/log.h"
#include "core/system.h"
#include "core/unique_fd.h"

using tessel::CallSite;
using tessel::UniqueFd;

namespace {

constexpr i32 kCmdlineBytes = 999;
constexpr i32 kStatusLineBytes = 1000;
constexpr i32 kCommLineBytes = 50;

constexpr char kOpenFailure[] = "open direct error.";
constexpr char kProcesses[] = "/proc/";

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

// Calls `matches` with the name of each subdirectory until it agrees, and returns that name as a number. 0 when it
// never does; -1, with `failure` logged, when `dir` cannot be read.
template <typename Predicate>
i32 FindSubdirectory(const char* dir, const char* failure, CallSite where, Predicate matches) {
    const Directory directory(opendir(dir), &closedir);
    if (directory == nullptr) {
        TESSEL_ERR_AT(where, "%s", failure);
        return -1;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (entry->d_type == DT_DIR && matches(entry->d_name)) return atoi(entry->d_name);
    }
    return 0;
}

// Reads `dir`/`entry`/`file` into the zeroed buffer, `bytes` at most. False when it cannot be read.
bool ReadProcessFile(const char* dir, const char* entry, const char* file, char* buffer, i32 bytes) {
    char path[512];
    const int length = snprintf(path, sizeof(path), "%s%s/%s", dir, entry, file);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(path)) return false;
    return ReadFileToBuf(path, buffer, bytes) >= 0;
}

// Each argument in "/proc/PID/cmdline" ends with a NUL. With blanks instead, they are one text.
void JoinArguments(char* cmdline, i32 bytes) {
    i32 last = bytes;
    while (last > 0 && cmdline[last - 1] == '\0')
        --last;
    for (i32 i = 0; i < last; ++i) {
        if (static_cast<unsigned char>(cmdline[i]) < ' ') cmdline[i] = ' ';
    }
}

// A process's command line, its words joined by blanks; empty when there is none.
struct Cmdline {
    Cmdline(const char* dir, const char* entry) {
        if (ReadProcessFile(dir, entry, "cmdline", text, kCmdlineBytes)) JoinArguments(text, kCmdlineBytes);
    }
    [[nodiscard]] bool Has(const char* part) const {
        return strstr(text, part) != nullptr;
    }
    [[nodiscard]] bool HasWord(const char* word) const {
        const std::size_t length = strlen(word);
        for (const char* found = strstr(text, word); length > 0 && found != nullptr; found = strstr(found + 1, word)) {
            if ((found == text || found[-1] == ' ') && (found[length] == ' ' || found[length] == '\0')) return true;
        }
        return false;
    }
    char text[kCmdlineBytes + 1] = {};
};

i32 FindByCmdline(const char* dir, const char* name, const char* name2, const char* except, CallSite where) {
    return FindSubdirectory(dir, kOpenFailure, where, [&](const char* entry) {
        const Cmdline cmdline(dir, entry);
        return (except == nullptr || !cmdline.Has(except)) && (name2 == nullptr || cmdline.Has(name2)) &&
               cmdline.Has(name);
    });
}

bool IsWanted(const char* entry, const tessel::InterfaceProcess& wanted) {
    const Cmdline cmdline(kProcesses, entry);
    return cmdline.Has(wanted.pattern) && cmdline.HasWord(wanted.word) &&
           (wanted.except == nullptr || !cmdline.Has(wanted.except));
}

}  // namespace

i32 GetServicePid(const char* dir, const char* name) {
    return FindSubdirectory(dir, kOpenFailure, CallSite::Current(), [&](const char* entry) {
        char status[kStatusLineBytes + 1] = {};
        if (!ReadProcessFile(dir, entry, "status", status, kStatusLineBytes)) return false;
        *strchrnul(status, '\n') = '\0';
        return strstr(status, name) != nullptr;
    });
}

i32 GetServicePidFromCmdline(const char* dir, const char* name, const char* name2) {
    return FindByCmdline(dir, name, name2, nullptr, CallSite::Current());
}

i32 GetServicePidFromCmdline2(const char* dir, const char* name, const char* name2, const char* except) {
    if (except == nullptr) {
        TESSEL_ERR("the pchExcept is !NULL");
        return -1;
    }
    return FindByCmdline(dir, name, name2, except, CallSite::Current());
}

namespace tessel {

pid_t InterfaceProcess::Find() const {
    const i32 pid = FindSubdirectory(kProcesses, kOpenFailure, CallSite::Current("FindInterfaceProcess"),
                                     [this](const char* entry) { return IsWanted(entry, *this); });
    return pid > 0 ? pid : 0;
}

bool InterfaceProcess::Is(pid_t pid) const {
    char entry[16];
    snprintf(entry, sizeof(entry), "%d", pid);
    return pid > 0 && IsWanted(entry, *this);
}

i32 FindProgram(const char* program, const char* word) {
    const i32 pid = FindSubdirectory(kProcesses, kOpenFailure, CallSite::Current(), [&](const char* entry) {
        char name[kCommLineBytes + 1] = {};
        if (!ReadProcessFile(kProcesses, entry, "comm", name, kCommLineBytes)) return false;
        *strchrnul(name, '\n') = '\0';
        return strcmp(name, program) == 0 && Cmdline(kProcesses, entry).HasWord(word);
    });
    return pid > 0 ? pid : 0;
}

}  // namespace tessel

i32 CheckCmdByPid(i32 pid, const char* name) {
    char wanted[16];
    snprintf(wanted, sizeof(wanted), "%d", pid);
    // Searched for in the listing: the path "/proc/TID" exists for a mere thread too.
    const i32 found = FindSubdirectory("/proc", "read dir error!", CallSite::Current(),
                                       [&](const char* entry) { return strcmp(entry, wanted) == 0; });
    if (found < 0) return -1;
    if (found == 0) {
        TESSEL_ERR("can't find %s in pid directory %d!", name, pid);
        return 0;
    }
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/comm", pid);
    if (access(path, R_OK) != 0) {
        TESSEL_PERROR("access file error:");
        TESSEL_ERR("access file error:[%s]!", path);
        return -1;
    }
    const UniqueFd comm(open(path, O_RDONLY | O_CLOEXEC));
    if (!comm.IsOpen()) {
        TESSEL_PERROR("open file error:");
        TESSEL_ERR("open file error:[%s]!", path);
        return -1;
    }
    char line[kCommLineBytes + 1] = {};
    if (read(comm.Get(), line, kCommLineBytes) <= 0) {
        TESSEL_ERR("read file error:[%s]!", path);
        return -1;
    }
    return strstr(line, name) != nullptr ? 1 : 0;
}
