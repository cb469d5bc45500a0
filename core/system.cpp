#include "core/system.h"

#include <fcntl.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "core/unique_fd.h"

using tessel::UniqueFd;

i32 ReadFileToBuf(const char* path, void* buf, i32 len) {
    memset(buf, 0, static_cast<size_t>(len));
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) return -1;
    return static_cast<i32>(read(file.Get(), buf, static_cast<size_t>(len)));
}

i32 IsUbuntuHost() {
    constexpr int kLineBytes = 500;
    UniqueFd fd(open("/etc/issue", O_RDONLY | O_CLOEXEC));
    if (!fd.IsOpen()) return 0;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> issue(fdopen(fd.Get(), "r"), &fclose);
    if (issue == nullptr) return 0;
    (void)fd.Release();
    char line[kLineBytes];
    while (fgets(line, sizeof(line), issue.get()) != nullptr) {
        if (strstr(line, "ubuntu") != nullptr || strstr(line, "Ubuntu") != nullptr) return 1;
    }
    return 0;
}
