// The counters of the three forms of "/proc/net/dev", and the rates between two samples.
#include "stat/traffic.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "stat/net_dev.h"

namespace {

using tessel::CounterSample;

CounterSample Read(std::string text) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(text.data(), text.size(), "r"), &fclose);
    return tessel::ReadCounters(file.get());
}

const std::string kFirstLine = "Inter-|   Receive                                                |  Transmit\n";
const std::string kHead =
    kFirstLine +
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls carrier "
    "compressed\n";

std::string TextOf(const CounterSample& sample) {
    std::string text;
    for (const tessel::ByteCounters& counters : sample.interfaces) {
        text += counters.isThere ? std::to_string(counters.received) + '/' + std::to_string(counters.sent) : "-";
        text += ' ';
    }
    return text;
}

TEST(NetDev, IsReadInAllForms) {
    const std::tuple<const char*, std::string, const char*> rows[] = {
        {"with compressed packets",
         kHead +
             "    lo:     100       1    0    0    0     0          0         0      200       1    0    0    0     0\n"
             "  eth0:18446744073709551615 2 0 0 0 0 0 0 77 1 0 0 0 0 0 0\n  eth2: 5 1 0 0 0 0 0 0 6 1 0 0 0 0 0 0\n",
         "18446744073709551615/77 - 5/6 "},
        {"without",
         kFirstLine + " face |bytes    packets errs drop fifo frame|bytes    packets errs drop fifo colls carrier\n"
                      "  eth1: 1000 1 2 3 4 5 2000 6 7 8 9 10 11\n",
         "- 1000/2000 - "},
        {"packets alone",
         kFirstLine + " face |packets errs drop fifo frame|packets errs drop fifo colls carrier\n"
                      "  eth1: 1 2 3 4 5 6 7 8 9 10 11\n",
         "- 0/0 - "},
        {"the last of the interfaces that begin alike, and none that only contains the name",
         kHead +
             "eth0: 1 0 0 0 0 0 0 0 2\neth0.5:3 0 0 0 0 0 0 0 4\nveth0: 9 0\n  eth1234567890123: 9 0 0 0 0 0 0 0 9\n",
         "3/4 - - "},
        {"cut lines", kHead + "  eth0: 7\n  eth1:\n  eth2", "7/0 0/0 - "},
        {"one line", kFirstLine, "- - - "},
        {"no newline anywhere", std::string(100000, 'e'), "- - - "},
    };
    for (const auto& [description, text, expected] : rows)
        EXPECT_EQ(TextOf(Read(text)), expected) << description;
}

TEST(Bandwidth, IsBitsPerSecond) {
    const CounterSample before{{{500, 1000, true}, {9, 9, true}, {0, 0, false}}};
    const CounterSample after{{{501, 2000, true}, {8, 9, true}, {1, 1, true}}};
    const TNetBandwidthReport report = tessel::BandwidthBetween(before, after, 2);
    // The second is a counter that has restarted.
    const TNetBandwidthReport expected{{{4000, 4, 1, 0}, {0, static_cast<u64>(-4), 1, 0}, {}}};
    EXPECT_EQ(memcmp(&report, &expected, sizeof(report)), 0);
    EXPECT_EQ(static_cast<u64>(tessel::BandwidthBetween(after, before, 0xffffffff).atBand[0].ullSendBand), 0U);
    EXPECT_EQ(u32{tessel::BandwidthBetween(after, before, 1).atBand[2].dwValid}, 0U) << "it has gone";
}

}  // namespace
