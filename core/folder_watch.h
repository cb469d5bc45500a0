// Notices cheaply when names appear in a folder or disappear from it.
#pragma once

#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel {

class FolderWatch {
  public:
    // `path` outlives it. Nothing is opened before the first call.
    explicit FolderWatch(const char* path) : path_(path) {}

    // True when every name is present or missing as it was when this was last false: one system call. False at least
    // once a second (`tick`: milliseconds of a clock that is never 0), because another file system may have been
    // mounted over the folder, and always if the kernel watches nothing.
    [[nodiscard]] bool IsUnchanged(u64 tick);

  private:
    const char* path_;
    UniqueFd events_;
    u64 armedAtTick_ = 0;  // 0: not armed
};

}  // namespace tessel
