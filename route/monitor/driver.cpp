#include "route/monitor/driver.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "core/log.h"
#include "probe/conflict/conflict.h"
#include "probe/conflict/netdev_table.h"
#include "route/monitor/netlink.h"

namespace {

constexpr int kProtocol = 30;
constexpr u16 kRegister = 8;
constexpr std::size_t kMessageBytes = 1040;

// Events have the numbers 1 to 9. What most of them stand for is the module's own affair.
constexpr u16 kEventFirst = 1;
constexpr u16 kEventLast = 9;
constexpr u16 kAddressEvent = 5;

void NetlinkSend(int fd) {
    nlmsghdr message{};
    message.nlmsg_len = sizeof(message);
    message.nlmsg_type = kRegister;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (sendto(fd, &message, sizeof(message), 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel)) < 0) {
        TESSEL_PERROR("sendto error!");
    }
}

void NetlinkDeal(u16 event) {
    TESSEL_PRT("NetlinkDeal type = %d", event);
    switch (event) {
        case kAddressEvent:
            tessel::NoteAddressChange();
            [[fallthrough]];
        case 1:
        case 6:
        case 7:
            tessel::RebuildNetdevTable();
            break;
        default:
            break;
    }
}

// Returns when the socket is no longer usable.
void NetlinkRecv(int fd) {
    while (true) {
        alignas(nlmsghdr) u8 buffer[kMessageBytes] = {};
        const ssize_t size = recvfrom(fd, buffer, sizeof(buffer), 0, nullptr, nullptr);
        if (size < 0 && errno != EINTR && errno != ENOBUFS) {
            TESSEL_PERROR("recvfrom error");
            return;
        }
        if (size < 0) {
            if (errno == ENOBUFS) NetlinkDeal(kAddressEvent);  // events were lost: it stands for all of them
            continue;
        }
        if (size == 0) TESSEL_ERR("recv form kerner:%d", 0);
        // What was not received reads as 0. The payload is the module's own.
        nlmsghdr header;
        memcpy(&header, buffer, sizeof(header));
        if (header.nlmsg_type >= kEventFirst && header.nlmsg_type <= kEventLast) {
            NetlinkDeal(header.nlmsg_type);
        } else {
            TESSEL_ERR("msg type is invalid!");
        }
    }
}

}  // namespace

void NetlinkInitThread(void* /*unused*/) {
    const tessel::UniqueFd fd = tessel::OpenNetlink(kProtocol, 0, 0);
    if (!fd.IsOpen()) return;
    NetlinkSend(fd.Get());
    NetlinkRecv(fd.Get());
}
