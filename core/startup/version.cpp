#include "core/startup/version.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "core/log.h"
#include "core/unique_fd.h"

namespace {

constexpr int kMajor = 2;
constexpr int kMinor = 0;
constexpr int kPatch = 6;
constexpr u32 kBuildStamp = 0x4a7a76ab;
constexpr char kBuildUser[] = "root";
constexpr char kBuildHost[] = "builder";

constexpr char kVersionFile[] = "/proc/veltrac/version";
constexpr std::string_view kVersionRecord = "name:tessel#version:2.0.6-0x4a7a76ab#";
static_assert(kVersionRecord.size() == 37, "the record's readers rely on its length");

}  // namespace

i32 NetQueryVersion(char* buf, u32 bufLen) {
    if (buf == nullptr) {
        TESSEL_ERR("the point is NULL");
        return -1;
    }
    memset(buf, 0, bufLen);
    char banner[256];
    const int length = snprintf(banner, sizeof(banner), "Tessels Module Version: V%d.%d.%d.%08x (%s@%s) Build %s %s",
                                kMajor, kMinor, kPatch, kBuildStamp, kBuildUser, kBuildHost, __DATE__, __TIME__);
    if (static_cast<u32>(length) >= bufLen) {
        TESSEL_ERR("the dwBufLen is invalid: dwBuflen = %d,the length of buf is %d", static_cast<i32>(bufLen), length);
        return -1;
    }
    memcpy(buf, banner, static_cast<std::size_t>(length) + 1);
    return 0;
}

void NetSaveVersionInfo() {
    if (access(kVersionFile, R_OK) != 0) {
        TESSEL_ERR("%s did not exist!", kVersionFile);
        return;
    }
    const tessel::UniqueFd file(open(kVersionFile, O_RDWR | O_APPEND | O_CLOEXEC));
    if (!file.IsOpen()) {
        TESSEL_ERR("open error");
        return;
    }
    if (write(file.Get(), kVersionRecord.data(), kVersionRecord.size()) < static_cast<ssize_t>(kVersionRecord.size())) {
        TESSEL_PERROR("write error\n");
    }
}
