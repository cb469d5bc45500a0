#include "core/text_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessel {

bool LineReader::Fill() {
    const std::size_t wanted = std::min<std::size_t>(sizeof(bytes_), leftBytes_);
    ssize_t count = 0;
    do {
        count = read(file_.Get(), bytes_, wanted);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) return false;
    begin_ = 0;
    end_ = static_cast<u32>(count);
    leftBytes_ -= end_;
    return true;
}

bool LineReader::Next(std::span<char> line) {
    std::size_t length = 0;
    bool isSomething = false;
    while (length + 1 < line.size() && (begin_ < end_ || Fill())) {
        isSomething = true;
        const std::size_t room = std::min<std::size_t>(line.size() - 1 - length, end_ - begin_);
        const void* const newline = memchr(bytes_ + begin_, '\n', room);
        const std::size_t taken =
            newline == nullptr ? room : static_cast<std::size_t>(static_cast<const char*>(newline) - bytes_) - begin_;
        memcpy(line.data() + length, bytes_ + begin_, taken);
        length += taken;
        begin_ += static_cast<u32>(taken);
        if (newline == nullptr) continue;
        ++begin_;
        break;
    }
    line[length] = '\0';
    return isSomething;
}

}  // namespace tessel
