// The counters of the three forms of "/proc/net/dev", and the rates between two samples.
#include "stat/traffic.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "stat/net_dev.h"

namespace {

using tessel::CounterSample;

CounterSample Read(std::string text) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(text.data(), text.size(), "r"), &fclose);
    return tessel::ReadCounters(file.get());
}

constexpr char kFirstLine[] = "Inter-|   Receive                                                |  Transmit\n";
constexpr char kWithCompressed[] =
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
    const struct {
        const char* description;
        std::string text;
        const char* expected;
    } rows[] = {
        {"with compressed packets",
         std::string(kFirstLine) + kWithCompressed +
             "    lo:     100       1    0    0    0     0          0         0      200       1    0    0    0     0  "
             "     "
             "0          0\n"
             "  eth0:18446744073709551615 2 0 0 0 0 0 0 77 1 0 0 0 0 0 0\n"
             "  eth2: 5 1 0 0 0 0 0 0 6 1 0 0 0 0 0 0\n",
         "18446744073709551615/77 - 5/6 "},
        {"without",
         std::string(kFirstLine) +
             " face |bytes    packets errs drop fifo frame|bytes    packets errs drop fifo colls carrier\n"
             "  eth1: 1000 1 2 3 4 5 2000 6 7 8 9 10 11\n",
         "- 1000/2000 - "},
        {"packets alone",
         std::string(kFirstLine) + " face |packets errs drop fifo frame|packets errs drop fifo colls carrier\n"
                                   "  eth1: 1 2 3 4 5 6 7 8 9 10 11\n",
         "- 0/0 - "},
        {"the last of the interfaces that begin alike, and none that only contains the name",
         std::string(kFirstLine) + kWithCompressed + "eth0: 1 0 0 0 0 0 0 0 2\neth0.5:3 0 0 0 0 0 0 0 4\nveth0: 9 0\n" +
             "  eth1234567890123: 9 0 0 0 0 0 0 0 9\n",
         "3/4 - - "},
        {"cut lines", std::string(kFirstLine) + kWithCompressed + "  eth0: 7\n  eth1:\n  eth2", "7/0 0/0 - "},
        {"one line", kFirstLine, "- - - "},
        {"nothing", "\n", "- - - "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(TextOf(Read(row.text)), row.expected) << row.description;
    EXPECT_EQ(TextOf(Read(std::string(100000, 'e'))), "- - - ") << "no newline anywhere";
}

TEST(Bandwidth, IsBitsPerSecond) {
    const CounterSample before{{{.received = 500, .sent = 1000, .isThere = true},
                                {.received = 9, .sent = 9, .isThere = true},
                                {.received = 0, .sent = 0, .isThere = false}}};
    const CounterSample after{{{.received = 501, .sent = 2000, .isThere = true},
                               {.received = 8, .sent = 9, .isThere = true},
                               {.received = 1, .sent = 1, .isThere = true}}};
    const TNetBandwidthReport report = tessel::BandwidthBetween(before, after, 2);
    TNetBandwidthReport expected{};
    expected.atBand[0] = {.ullSendBand = 4000, .ullRecvBand = 4, .dwValid = 1, .dwReserved = 0};
    // A counter that has restarted.
    expected.atBand[1] = {.ullSendBand = 0, .ullRecvBand = static_cast<u64>(-4), .dwValid = 1, .dwReserved = 0};
    EXPECT_EQ(memcmp(&report, &expected, sizeof(report)), 0);
    EXPECT_EQ(static_cast<u64>(tessel::BandwidthBetween(after, before, 0xffffffff).atBand[0].ullSendBand), 0U);
}

}  // namespace
