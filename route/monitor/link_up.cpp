#include "route/monitor/link_up.h"

#include <net/if.h>
#include <sys/ioctl.h>

#include <cstring>

#include "core/log.h"
#include "core/netif.h"

i32 count = 0;

namespace {

// Results of InterfaceCheckState.
constexpr i32 kDown = 1;
constexpr i32 kRunning = 2;
constexpr i32 kWithoutCarrier = 0;

}  // namespace

i32 InterfaceCheckState(const char* name) {
    ifreq answer{};
    switch (tessel::AskInterface(name, SIOCGIFFLAGS, answer, {.noSocket = "socket", .refused = "ioctl error:"})) {
        case tessel::InterfaceAnswer::kAnswered:
            break;
        case tessel::InterfaceAnswer::kNoSocket:
            return -1;
        case tessel::InterfaceAnswer::kRefused:
            TESSEL_ERR("Failed to get interface %s flags.", name);
            return kDown;
    }
    if ((answer.ifr_flags & IFF_UP) == 0) return kDown;
    return (answer.ifr_flags & IFF_RUNNING) != 0 ? kRunning : kWithoutCarrier;
}

i32 BringUpInterface() {
    TESSEL_PRT("entering ......");
    tessel::InterfaceList list;
    if (!tessel::ListInterfaces(list)) {
        TESSEL_ERR("SocketIoctl error!");
        return -1;
    }
    for (const ifreq& entry : list.Entries()) {
        const char* const name = entry.ifr_name;
        TESSEL_PRT("ifr_name = %s", name);
        if (strstr(name, "eth") == nullptr) continue;
        ++count;
        u32 flags = 0;
        if (InterfaceCheckState(name) == kDown && IfethGetFlags(name, &flags) == 0) {
            (void)IfethSetFlags(name, flags | IFF_UP);
        }
    }
    TESSEL_PRT("leaving ......");
    return 0;
}
