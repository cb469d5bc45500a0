/* Sends one router advertisement to everybody on a link: device_advertise INTERFACE PREFIX ROUTER_SECONDS
 * PREFIX_SECONDS */
#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

int main(int count, char** words) {
    struct {
        struct nd_router_advert header;
        struct nd_opt_prefix_info network;
    } message;
    if (count != 5) return 2;
    memset(&message, 0, sizeof message);
    message.header.nd_ra_type = ND_ROUTER_ADVERT;
    message.header.nd_ra_router_lifetime = htons((uint16_t)atoi(words[3]));
    message.network.nd_opt_pi_type = ND_OPT_PREFIX_INFORMATION;
    message.network.nd_opt_pi_len = sizeof message.network / 8;
    message.network.nd_opt_pi_prefix_len = 64;
    message.network.nd_opt_pi_flags_reserved = ND_OPT_PI_FLAG_ONLINK | ND_OPT_PI_FLAG_AUTO;
    message.network.nd_opt_pi_valid_time = message.network.nd_opt_pi_preferred_time = htonl((uint32_t)atoi(words[4]));
    if (inet_pton(AF_INET6, words[2], &message.network.nd_opt_pi_prefix) != 1) return 2;

    const int link = socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
    const int hops = 255; /* from elsewhere it would not be believed */
    struct sockaddr_in6 all = {.sin6_family = AF_INET6};
    inet_pton(AF_INET6, "ff02::1", &all.sin6_addr);
    if (setsockopt(link, SOL_SOCKET, SO_BINDTODEVICE, words[1], (socklen_t)strlen(words[1])) != 0 ||
        setsockopt(link, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops) != 0) {
        return 1;
    }
    return sendto(link, &message, sizeof message, 0, (const struct sockaddr*)&all, sizeof all) == sizeof message ? 0
                                                                                                                 : 1;
}
