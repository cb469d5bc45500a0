/* A time server that is wrong as one likes: device_sntp SECONDS | +MICROSECONDS
 *
 * SECONDS since 1970 is what its clock showed when it was started; it goes on from there, whatever happens to the
 * system's. With +MICROSECONDS it is always so much ahead of the system's clock. Answers on port 123 of both families
 * until it is ended. */
#include <arpa/inet.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

/* 1970 on a clock that began in 1900, in seconds. */
static const int64_t kEpoch = 2208988800;

/* In microseconds. */
static int64_t Now(clockid_t clock) {
    struct timespec now;
    clock_gettime(clock, &now);
    return now.tv_sec * INT64_C(1000000) + now.tv_nsec / 1000;
}

int main(int count, char** words) {
    if (count != 2) return 2;
    const char* word = words[1];
    const clockid_t clock = *word == '+' ? CLOCK_REALTIME : CLOCK_MONOTONIC;
    const int64_t ahead = *word == '+' ? atoll(word) : atoll(word) * 1000000 - Now(clock);
    const int server = socket(AF_INET6, SOCK_DGRAM, 0);
    const struct sockaddr_in6 any = {.sin6_family = AF_INET6, .sin6_port = htons(123)};
    if (bind(server, (const struct sockaddr*)&any, sizeof any) != 0) return 1;
    for (;;) {
        uint32_t packet[12];
        struct sockaddr_storage client;
        socklen_t size = sizeof client;
        if (recvfrom(server, packet, sizeof packet, 0, (struct sockaddr*)&client, &size) != sizeof packet) continue;
        const int64_t now = Now(clock) + ahead;
        packet[0] = htonl(0x1c0100ec); /* version 3, a server's answer, stratum 1, precision 2^-20 s */
        memcpy(packet + 6, packet + 10, 8);
        packet[8] = packet[10] = htonl((uint32_t)(now / 1000000 + kEpoch));
        packet[9] = packet[11] = htonl((uint32_t)(((now % 1000000) << 32) / 1000000));
        sendto(server, packet, sizeof packet, 0, (struct sockaddr*)&client, size);
    }
}
