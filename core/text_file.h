// Files that other programs write and this one reads, line by line.
#pragma once

#include <span>

#include "core/regular_file.h"
#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel {

// Reads a file in lines.
class LineReader {
  public:
    // Takes over the descriptor and reads `limitBytes` of it at most.
    LineReader(UniqueFd file, u32 limitBytes) : file_(std::move(file)), leftBytes_(limitBytes) {}

    // The next line without its newline, terminated; for a line longer than the field, its next part. False at the end,
    // at the limit and when the file cannot be read.
    [[nodiscard]] bool Next(std::span<char> line);

  private:
    bool Fill();

    UniqueFd file_;
    u32 leftBytes_;  // of the file that may still be read
    char bytes_[512];
    u32 begin_ = 0;  // of what is in bytes_ and has not been handed out
    u32 end_ = 0;
};

}  // namespace tessel
