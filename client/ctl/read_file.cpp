#include "client/ctl/read_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "client/ctl/failure.h"
#include "client/ctl/format.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

std::optional<std::string> ReadToEnd(int fd) {
    std::string text;
    std::array<char, 4096> block;
    ssize_t count = 0;
    while ((count = read(fd, block.data(), block.size())) > 0)
        text.append(block.data(), static_cast<std::size_t>(count));
    return count < 0 ? std::nullopt : std::optional(std::move(text));
}

std::string ReadWholeFile(std::string_view asked, const std::string& path) {
    const UniqueFd file(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    auto text = file.IsOpen() ? ReadToEnd(file.Get()) : std::nullopt;
    if (!text) throw Refused(asked, Format("cannot read {}: {}", path, strerror(errno)));
    return std::move(*text);
}

void ReplaceFile(std::string_view asked, const std::string& path, const std::string& text) {
    std::string name = path + ".XXXXXX";
    UniqueFd file(mkstemp(name.data()));
    const bool isWritten = file.IsOpen() &&
                           write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                           fsync(file.Get()) == 0 && rename(name.c_str(), path.c_str()) == 0;
    if (isWritten) return;
    const int error = errno;
    if (file.IsOpen()) unlink(name.c_str());
    throw Failed(asked, Format("{}: {}", path, strerror(error)));
}

}  // namespace tessel::ctl
