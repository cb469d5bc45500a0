#include "route/mtu.h"

#include <net/if.h>
#include <sys/ioctl.h>

#include <cerrno>

#include "core/log.h"
#include "core/netif.h"

using tessel::AskInterface;
using tessel::InterfaceAnswer;

i32 MtuSet(const char* interfaceName, u32 mtu) {
    ifreq request{};
    request.ifr_mtu = static_cast<int>(mtu);
    if (AskInterface(interfaceName, SIOCSIFMTU, request) == InterfaceAnswer::kAnswered) return 0;
    return errno == EBUSY ? kMtuBusy : -1;
}

i32 MtuGet(const char* interfaceName, u32* mtu) {
    if (mtu == nullptr) {
        TESSEL_ERR("the pdwMtu is NULL!");
        return -1;
    }
    TESSEL_PRT("MtuGet pchIfaceName : %s", interfaceName);
    ifreq request{};
    if (AskInterface(interfaceName, SIOCGIFMTU, request) != InterfaceAnswer::kAnswered) return -1;
    *mtu = static_cast<u32>(request.ifr_mtu);
    TESSEL_PRT("MtuGet mtu : %d", request.ifr_mtu);
    return 0;
}
