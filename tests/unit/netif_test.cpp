#include "core/netif.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>

namespace {

TEST(Interface, IsQueriedAndSwitchedByName) {
    u32 flags = 0;
    ASSERT_EQ(IfethGetFlags("eth1", &flags), 0);
    EXPECT_NE(flags & IFF_BROADCAST, 0U);
    EXPECT_EQ(IfethSetFlags("eth1", flags & ~static_cast<u32>(IFF_UP)), 0);
    u32 linkUp = 7;
    ASSERT_EQ(IfethGetLineStatus("eth1", &linkUp), 0);
    EXPECT_EQ(linkUp, 0U);
    EXPECT_EQ(IfethSetFlags("eth1", flags | IFF_UP), 0);
    ASSERT_EQ(IfethGetLineStatus("eth1", &linkUp), 0);
    EXPECT_EQ(linkUp, 1U);

    u32 address = 0;
    EXPECT_EQ(IfethGetIpv4Addr("lo", &address), 0);
    EXPECT_EQ(address, inet_addr("127.0.0.1"));
    EXPECT_EQ(IfethGetIpv4Addr("eth1", &address), -1) << "it has none";
    EXPECT_EQ(IfethGetFlags("no-such", &flags), -1);
    EXPECT_EQ(IfethGetFlags(nullptr, &flags), -1);
    EXPECT_EQ(IfethGetLineStatus("eth1", nullptr), -1);

    char name[16] = {};
    EXPECT_EQ(interface_name(2, name, sizeof(name)), 0);
    for (const i32 noPort : {3, -1})
        EXPECT_EQ(interface_name(noPort, name, sizeof(name)), 1201);
    EXPECT_STREQ(name, "eth2");
}

}  // namespace
