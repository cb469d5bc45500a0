// The result files of both DHCP clients. The first byte chooses the family, the others are the file.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"

namespace {

void Require(bool holds) {
    if (!holds) abort();
}

tessel::UniqueFd FileOf(const std::uint8_t* data, std::size_t size) {
    tessel::UniqueFd file(memfd_create("result", MFD_CLOEXEC));
    Require(write(file.Get(), data, size) == static_cast<ssize_t>(size) && lseek(file.Get(), 0, SEEK_SET) == 0);
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    constexpr u32 kLimitBytes = 65536;
    TNetDhcpcLease lease{};
    strcpy(lease.achDevName, "eth0");
    u32 event = 0;
    tessel::LineReader lines(FileOf(data + 1, size - 1), kLimitBytes);
    if (data[0] % 2 == 0) {
        tessel::ReadResultV4(lines, lease, event);
        Require(event <= 4);
    } else {
        char line[256];
        while (lines.Next(line) && ParseAddr(line, &lease, &event) == 0) {
        }
        Require(event == 0 || event == 4 || event == TESSEL_DHCPC_LEASE || event == TESSEL_DHCPC_FAILED);
    }
    Require(lease.dwDnsNum <= TESSEL_DHCP_DNS_MAX);
    Require(strcmp(lease.achDevName, "eth0") == 0);
    return 0;
}
