// "/proc/net/dev", read twice: the rates between its two halves.
#include "stat/net_dev.h"

#include "fuzz/fuzz.h"
#include "stat/traffic.h"

namespace tessel::fuzz {

namespace {

CounterSample ReadText(std::vector<u8> text) {
    if (text.empty()) return {};
    std::FILE* const file = fmemopen(text.data(), text.size(), "r");
    Require(file != nullptr);
    const CounterSample sample = ReadCounters(file);
    fclose(file);
    return sample;
}

}  // namespace

std::vector<std::string> Seeds() {
    const std::string newest =
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls\n"
        "    lo: 100 1 0 0 0 0 0 0 100 1 0 0 0 0 0 0\n  eth0:18446744073709551615 2 0 0 0 0 0 0 300 3 0 0 0 0 0 0\n"
        "eth1: 5 1 0 0 0 0 0 0 6 1 0 0\n";
    return {newest + newest, "Inter\n face |bytes packets errs\neth2:1 2 3 4 5 6 7 8 9\n"};
}

void TryInput(Input input) {
    const std::size_t size = input.Left();
    const CounterSample first = ReadText(input.TakeBytes(size / 2));
    const CounterSample second = ReadText(input.TakeRest());
    const TNetBandwidthReport report = BandwidthBetween(first, second, 1 + size % 3);
    for (int i = 0; i < TESSEL_TRAFFIC_INTERFACES; ++i) {
        const bool isThere = first.interfaces[i].isThere && second.interfaces[i].isThere;
        const TNetBandwidth& band = report.atBand[i];
        Require(band.dwValid == (isThere ? 1U : 0U));
        Require(isThere || (band.ullSendBand == 0 && band.ullRecvBand == 0));
    }
}

}  // namespace tessel::fuzz
