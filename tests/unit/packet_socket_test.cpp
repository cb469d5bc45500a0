#include "probe/packet_socket.h"

#include <gtest/gtest.h>
#include <linux/if_ether.h>

#include <cerrno>

#include "tests/support/far.h"

namespace tessel::test {
namespace {

TEST(PacketSocket, SendsAFrameAsItIs) {
    const FarLink far("far0", ETH_P_ARP);
    std::string frame(60, '\0');
    frame.replace(0, 14, std::string("\xff\xff\xff\xff\xff\xff\x02\0\0\0\x07\x07\x08\x06", 14));
    frame.back() = '\x17';
    const PacketSocket sender = PacketSocket::ForFrames("eth0");
    EXPECT_TRUE(sender.SendFrame(frame.data(), frame.size()));
    EXPECT_EQ(far.Next(), frame);

    const PacketSocket nowhere = PacketSocket::ForFrames("eth9");
    EXPECT_EQ(errno, ENODEV);
    EXPECT_FALSE(nowhere.IsOpen());
    EXPECT_FALSE(nowhere.SendFrame(frame.data(), frame.size()));
}

}  // namespace
}  // namespace tessel::test
