// Neighbour discovery messages. The first bytes are where a message came from, where it went to and its hop limit.
#include "fuzz/fuzz.h"
#include "probe/conflict/ndp.h"
#include "probe/conflict/neighbour_conflict.h"

namespace tessel::fuzz {

std::vector<std::string> Seeds() {
    const std::string linkLocal("\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\1", 16);
    const std::string toAll("\xff\x02\0\0\0\0\0\0\0\0\0\0\0\0\0\1", 16);
    const std::string target("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x20", 16);
    const std::string advertisement = "\x88" + std::string("\0\0\0\x20\0\0\0", 7) + target;
    const std::string solicitation = "\x87" + std::string(7, '\0') + target;
    const std::string mac("\x02\0\0\0\1\x77", 6);
    return {linkLocal + toAll + "\xff" + advertisement + "\2\1" + mac,
            linkLocal + linkLocal + "\xff" + solicitation + "\1\1" + mac,
            std::string(16, '\0') + toAll + "\xff" + solicitation};
}

void TryInput(Input input) {
    const auto source = input.Take<in6_addr>();
    const auto destination = input.Take<in6_addr>();
    const NeighbourPath path{.source = source, .destination = destination, .hopLimit = input.Take<u8>()};
    const std::vector<u8> bytes = input.TakeRest();
    const auto message = ReadNeighbourMessage(bytes, path);
    if (!message) return;
    // RFC 4861 7.1: what is let through has passed no router and is about one host.
    Require(path.hopLimit == 255 && bytes.size() >= 24 && message->target.s6_addr[0] != 0xff);
    Require(memcmp(&message->target, &bytes[8], sizeof(message->target)) == 0);
    Require(message->isAdvertisement == (bytes[0] == 136) && (bytes[0] == 135 || bytes[0] == 136));
    if (message->linkAddress) {
        Require(message->linkAddress->data() >= bytes.data() + 24 + 2);
        Require(message->linkAddress->data() + 6 <= bytes.data() + bytes.size());
    }
    TNetdevRecord record{};
    record.tIfaceIp.dwNum = 1;
    record.tIfaceIp.atIp[0].wSinFamily = TESSEL_FAMILY_INET6;
    memcpy(record.tIfaceIp.atIp[0].abyAddr, &message->target, sizeof(message->target));
    const bool isOwnMac =
        message->linkAddress && std::equal(message->linkAddress->begin(), message->linkAddress->end(), record.abyMac);
    TNetConflictReport report{};
    const u32 conflict = CheckNeighbour(record, *message, report);
    Require((conflict == TESSEL_CONFLICT_MAC) == isOwnMac);
    Require(conflict != TESSEL_CONFLICT_IP || (message->isAdvertisement && message->linkAddress.has_value()));
}

}  // namespace tessel::fuzz
