// Opening files on behalf of a client, which must not reach more of them than it could itself.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include "core/types.h"

namespace tessel {

// Who is at the other end of a connection. The user is -1, which nobody is, when that is unknown.
[[nodiscard]] ucred PeerOf(int connection);

// While one lives, its thread opens and creates files with the rights of another process's user and group, without
// other groups. Nothing changes for a process of the thread's own user.
class FileRights {
  public:
    explicit FileRights(const ucred& process);
    ~FileRights();
    FileRights(const FileRights&) = delete;
    FileRights& operator=(const FileRights&) = delete;

    // False when they could not be taken: nothing may be opened then.
    [[nodiscard]] bool AreTaken() const {
        return areTaken_;
    }

  private:
    static constexpr int kGroupsMax = 64;

    bool isForeign_;
    bool areTaken_ = false;
    int dumpable_ = 0;
    int groupCount_ = 0;
    gid_t groups_[kGroupsMax];  // of this thread before
};

}  // namespace tessel
