#include "probe/interface.h"

#include <sys/ioctl.h>

#include "core/log.h"
#include "core/netif.h"

using tessel::InterfaceQuery;

i32 FindIndex(const char* name) {
    ifreq answer{};
    switch (tessel::AskInterface(name, SIOCGIFINDEX, answer)) {
        case InterfaceQuery::kAnswered:
            return answer.ifr_ifindex;
        case InterfaceQuery::kNoSocket:
            TESSEL_PERROR("socket");
            return -1;
        case InterfaceQuery::kRefused:
            break;
    }
    TESSEL_PERROR("ioctl error:");
    return -1;
}

i32 InterfaceCheck(const char* name) {
    ifreq answer{};
    if (tessel::AskInterface(name, SIOCGIFFLAGS, answer) != InterfaceQuery::kAnswered) {
        TESSEL_ERR("Failed to get interface %s flags.", name);
        return -1;
    }
    constexpr int kWatched = IFF_UP | IFF_NOARP | IFF_LOOPBACK;
    return (answer.ifr_flags & kWatched) == IFF_UP ? 0 : -1;
}
