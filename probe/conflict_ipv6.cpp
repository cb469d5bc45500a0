#include "probe/conflict_ipv6.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "core/log.h"
#include "probe/announcer.h"
#include "probe/conflict.h"
#include "probe/conflict_report.h"
#include "probe/neighbour_listener.h"

std::atomic<i32> g_nIpv6ChangedFlag{0};

namespace {

std::atomic<i32> g_roundsOwed{0};

std::span<const TNetIpAddr> EntriesOf(const TNetdevRecord& record) {
    return {record.tIfaceIp.atIp, std::min<std::size_t>(record.tIfaceIp.dwNum, TESSEL_ADDRESSES_MAX)};
}

in6_addr AddressOf(const TNetIpAddr& entry) {
    in6_addr address;
    memcpy(&address, entry.abyAddr, sizeof(address));
    return address;
}

// Asks for every IPv6 address that the kernel itself has done with.
void Announce(const TNetdevRecord& record) {
    for (const TNetIpAddr& entry : EntriesOf(record)) {
        if (entry.wSinFamily != TESSEL_FAMILY_INET6 || entry.bTentative != 0) continue;
        tessel::SendDadSolicitation(record.achDevName, AddressOf(entry));
    }
}

void LogConflict(const char* what, const TNetdevRecord& record, const tessel::NeighbourMessage& message,
                 tessel::CallSite where = tessel::CallSite::Current()) {
    char text[INET6_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET6, &message.target, text, sizeof(text));
    const auto mac = *message.linkAddress;
    TESSEL_ERR_AT(where, "interface[%s]:Conflicted %s[%s] The other side MAC[%02x:%02x:%02x:%02x:%02x:%02x]",
                  record.achDevName, what, text, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// What is to be told of a message that came in on an interface; a MAC conflict only once per record.
u32 Judge(const char* interfaceName, const tessel::NeighbourMessage& message, TNetConflictReport& report) {
    const tessel::NetdevTableLock lock;
    for (TNetdevRecord& record : std::span(g_ptNetdevMember->atRecord, g_ptNetdevMember->dwNum)) {
        if (strcmp(record.achDevName, interfaceName) != 0) continue;
        const u32 conflict = tessel::CheckNeighbour(record, message, report);
        if (conflict != TESSEL_CONFLICT_MAC) return conflict;
        if (g_nIpv6ConflictReport == 0 || record.bV6MacConflict != 0) return 0;
        record.bV6MacConflict = 1;
        return conflict;
    }
    return 0;
}

void TakeMessage(const char* interfaceName, const tessel::NeighbourMessage& message) {
    TNetConflictReport report{};
    const u32 conflict = Judge(interfaceName, message, report);
    if (conflict == 0 || g_nIpv6ConflictReport == 0) return;
    tessel::SendReport(TESSEL_SOCKET_IPV6_CONFLICT, conflict, report);
    g_roundsOwed = tessel::kConfirmRounds;
}

}  // namespace

namespace tessel {

u32 CheckNeighbour(const TNetdevRecord& record, const NeighbourMessage& message, TNetConflictReport& report) {
    if (!message.linkAddress) return 0;
    const bool isOwnMac = memcmp(message.linkAddress->data(), record.abyMac, sizeof(record.abyMac)) == 0;
    u32 conflict = 0;
    for (const TNetIpAddr& entry : EntriesOf(record)) {
        if (entry.wSinFamily != TESSEL_FAMILY_INET6) continue;
        if (isOwnMac) {
            conflict = TESSEL_CONFLICT_MAC;
            FillReport(report, record, entry);
        } else if (message.isAdvertisement && memcmp(entry.abyAddr, &message.target, sizeof(entry.abyAddr)) == 0) {
            conflict = TESSEL_CONFLICT_IP;
            FillReport(report, record, entry);
        }
    }
    if (conflict == TESSEL_CONFLICT_IP) LogConflict("IP", record, message);
    if (conflict == TESSEL_CONFLICT_MAC) LogConflict("MAC", record, message);
    return conflict;
}

}  // namespace tessel

void RecvNetPacketV6(void* /*unused*/) {
    tessel::ListenToNeighbours(&TakeMessage);
}

void SendNetPacketV6(void* /*unused*/) {
    tessel::AnnounceForEver({g_nIpv6ChangedFlag, g_roundsOwed, &Announce});
}
