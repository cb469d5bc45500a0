// What the clients of both families have in common: start and end their program and worker, take their result file,
// report.
#pragma once

#include <sys/stat.h>

#include "core/call_site.h"
#include "core/exec.h"
#include "core/types.h"
#include "core/unique_fd.h"
#include "services/dhcp_client.h"
#include "services/interface_process.h"

namespace tessel {

// The name of a session's interface: 1 to 15 characters.
[[nodiscard]] inline const char* InterfaceOf(const TDhcpcInfo& info) {
    return info.tLease.achDevName;
}

// Ends a process of the session, unless it has already ended. 0, or -1 with a log line.
[[nodiscard]] i32 KillProcess(const InterfaceProcess& wanted, pid_t pid, CallSite where = CallSite::Current());

// Makes sure that the session has its one worker. 0, or -1 with a log line.
[[nodiscard]] i32 StartWorker(TDhcpcInfo& info, const char* name, Worker::Body body,
                              CallSite where = CallSite::Current());

// Ends the worker, whatever it waits for, and says so once a second while that lasts.
void EndWorker(TDhcpcInfo& info, CallSite where = CallSite::Current());

// Starts the client program and leaves it to itself. 0, or -1 with a log line.
[[nodiscard]] i32 StartClient(const CommandLine& line);

// Makes a running client release its lease and ask for another one. Takes a second.
void RenewFromScratch(const InterfaceProcess& client, pid_t pid);

// True once the client runs: it is looked for `looks` times, a second apart.
[[nodiscard]] bool AwaitClient(const InterfaceProcess& client, int looks);

// True when the helper script of the device's image can be read; else false with a log line.
[[nodiscard]] bool HasScript(const char* path, CallSite where = CallSite::Current());

// Which file was read, and as it was then: another may have taken its name meanwhile, or its text may have changed.
struct FileIdentity {
    FileIdentity() = default;
    explicit FileIdentity(const struct stat& status)
        : device(status.st_dev),
          inode(status.st_ino),
          bytes(status.st_size),
          seconds(status.st_mtim.tv_sec),
          nanoseconds(status.st_mtim.tv_nsec) {}
    bool operator==(const FileIdentity&) const = default;
    [[nodiscard]] bool IsSameFile(const FileIdentity& other) const {
        return device == other.device && inode == other.inode;
    }

    dev_t device = 0;
    ino_t inode = 0;
    off_t bytes = 0;
    time_t seconds = 0;
    long nanoseconds = 0;
};

// A session's result file.
class ResultFile {
  public:
    // `format` makes the path from the interface's name.
    [[gnu::format(printf, 2, 3)]] explicit ResultFile(const char* format, ...);

    [[nodiscard]] const char* Path() const {
        return path_;
    }

    // True when there is a regular file of this process's user, and it is not `known`, or no more as it was. Anything
    // else of that name is removed if possible, and logged once.
    [[nodiscard]] bool IsThere(const FileIdentity& known = {}, CallSite where = CallSite::Current());

    enum class Removal { kDone, kReplaced, kGone, kFailed };
    // Removes the file if it still is the one that was read.
    [[nodiscard]] Removal Remove(const FileIdentity& read) const;

  private:
    char path_[64];
    bool isForeignKnown_ = false;
};

// Opens a result file for reading and says which it is. Closed, with errno set, when it is not a regular file or is
// another user's: it may have changed since it was looked for.
[[nodiscard]] UniqueFd OpenResultFile(const char* path, FileIdentity& identity);

// The place for the lease's next DNS server, given in `text`; null, with a log line, when the lease is full.
[[nodiscard]] TNetGateway* NextDns(TNetDhcpcLease& lease, const char* text, CallSite where);

// Sends the lease, without DNS servers where none are wanted, to the socket of the session's application, whose name
// begins with `socketName`, the interface and `infix`. A failure is logged.
void ReportLease(TDhcpcInfo& info, const char* socketName, const char* infix, u32 event,
                 CallSite where = CallSite::Current());

}  // namespace tessel
