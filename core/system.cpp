#include "core/system.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "core/text_file.h"
#include "core/unique_fd.h"

using tessel::UniqueFd;

i32 ReadFileToBuf(const char* path, void* buf, i32 len) {
    memset(buf, 0, static_cast<size_t>(len));
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) return -1;
    return static_cast<i32>(read(file.Get(), buf, static_cast<size_t>(len)));
}

i32 IsUbuntuHost() {
    constexpr u32 kLimitBytes = 65536;
    char line[500];
    tessel::LineReader issue(UniqueFd(open("/etc/issue", O_RDONLY | O_CLOEXEC)), kLimitBytes);
    while (issue.Next(line)) {
        if (strstr(line, "ubuntu") != nullptr || strstr(line, "Ubuntu") != nullptr) return 1;
    }
    return 0;
}
