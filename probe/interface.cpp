#include "probe/interface.h"

#include <sys/ioctl.h>

#include "core/log.h"
#include "core/netif.h"

using tessel::AskInterface;
using tessel::InterfaceAnswer;

i32 FindIndex(const char* name) {
    ifreq answer{};
    const InterfaceAnswer result =
        AskInterface(name, SIOCGIFINDEX, answer, {.noSocket = "socket", .refused = "ioctl error:"});
    return result == InterfaceAnswer::kAnswered ? answer.ifr_ifindex : -1;
}

i32 InterfaceCheck(const char* name) {
    ifreq answer{};
    if (AskInterface(name, SIOCGIFFLAGS, answer, {.noSocket = nullptr, .refused = nullptr}) !=
        InterfaceAnswer::kAnswered) {
        TESSEL_ERR("Failed to get interface %s flags.", name);
        return -1;
    }
    constexpr int kWatched = IFF_UP | IFF_NOARP | IFF_LOOPBACK;
    return (answer.ifr_flags & kWatched) == IFF_UP ? 0 : -1;
}
