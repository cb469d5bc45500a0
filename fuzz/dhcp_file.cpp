// The result files of both DHCP clients. The first byte chooses the family, the others are the file.
#include "core/exec_note.h"
#include "fuzz/fuzz.h"
#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"

namespace tessel::fuzz {

std::vector<std::string> Seeds() {
    return {std::string(1, '\0') +
                "leasesuccess\nlocal=192.168.1.20\nsubnet=255.255.255.0\nrouter=192.168.1.1\n"
                "dns=8.8.8.8\nleasetime=3600\n",
            "\1leasesuccess\naddr=fd00::2/64\nrouter=fe80::1\ndns=fd00::1\nleasetime=3600\n"};
}

void TryInput(Input input) {
    constexpr u32 kLimitBytes = 65536;
    TNetDhcpcLease lease{};
    strcpy(lease.achDevName, "eth0");
    u32 event = 0;
    const bool isInet = input.Take<u8>() % 2 == 0;
    LineReader lines(FileOf(input.TakeRest()), kLimitBytes);
    if (isInet) {
        ReadResultV4(lines, lease, event);
        Require(event <= 4);
    } else {
        char line[256];
        while (lines.Next(line) && ParseAddr(line, &lease, &event) == 0) {
        }
        Require(event == 0 || event == 4 || event == TESSEL_DHCPC_LEASE || event == TESSEL_DHCPC_FAILED);
    }
    Require(lease.dwDnsNum <= TESSEL_DHCP_DNS_MAX);
    Require(strcmp(lease.achDevName, "eth0") == 0);
    for (const std::string& line : TakeToolLines())
        Require(!isInet && line == "ip -6 route show dev eth0 default");
}

}  // namespace tessel::fuzz
