#include "probe/conflict/neighbour_conflict.h"

#include <cstring>

#include "core/family.h"
#include "core/log.h"
#include "probe/conflict/announcer.h"
#include "probe/conflict/conflict.h"
#include "probe/conflict/neighbour_listener.h"
#include "probe/conflict/report.h"

std::atomic<i32> g_nIpv6ChangedFlag{0};

namespace {

std::atomic<i32> roundsOwed{0};

// Asks for every IPv6 address that the kernel itself is no longer asking for.
void Announce(const TNetdevRecord& record) {
    for (const TNetIpAddr& entry : tessel::AddressesOf(record)) {
        if (entry.wSinFamily != TESSEL_FAMILY_INET6 || entry.bTentative != 0) continue;
        in6_addr address;
        memcpy(&address, entry.abyAddr, sizeof(address));
        tessel::SendDadSolicitation(record.achDevName, address);
    }
}

void LogConflict(const char* what, const TNetdevRecord& record, const tessel::NeighbourMessage& message,
                 tessel::CallSite where = tessel::CallSite::Current()) {
    TESSEL_ERR_AT(where, "interface[%s]:Conflicted %s[%s] The other side MAC[%s]", record.achDevName, what,
                  tessel::AddressText(TESSEL_FAMILY_INET6, &message.target).text,
                  tessel::MacText(message.linkAddress->data()).text);
}

// What a message that came in on an interface is reported as, 0 for nothing: a MAC conflict only once per record.
u32 Judge(const char* interfaceName, const tessel::NeighbourMessage& message, TNetConflictReport& report) {
    const tessel::NetdevTableLock lock;
    for (TNetdevRecord& record : tessel::RecordsOf(*g_ptNetdevMember)) {
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
    roundsOwed = tessel::kConfirmRounds;
    tessel::SendReport(TESSEL_SOCKET_IPV6_CONFLICT, conflict, report);
}

}  // namespace

namespace tessel {

u32 CheckNeighbour(const TNetdevRecord& record, const NeighbourMessage& message, TNetConflictReport& report) {
    if (!message.linkAddress) return 0;
    const bool isOwnMac = memcmp(message.linkAddress->data(), record.abyMac, sizeof(record.abyMac)) == 0;
    u32 conflict = 0;
    for (const TNetIpAddr& entry : AddressesOf(record)) {
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
    tessel::ConflictLogLimit limit;
    tessel::ListenToNeighbours(&TakeMessage);
}

void SendNetPacketV6(void* /*unused*/) {
    tessel::AnnounceForEver({g_nIpv6ChangedFlag, roundsOwed, &Announce});
}
