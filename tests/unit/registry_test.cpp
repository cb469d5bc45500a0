#include "core/registry.h"

#include <gtest/gtest.h>

namespace {

i32 First(int, u32, const void*, i32) {
    return 1;
}
i32 Second(int, u32, const void*, i32) {
    return 2;
}

TEST(Registry, KeepsTheFirstHandlerOfACode) {
    IpcApiCommonHead head;
    IpcApiInit(&head);
    EXPECT_EQ(IpcApiFindNode(&head, 0x112), nullptr);
    EXPECT_EQ(IpcApiUnRegister(&head, 0x112, &First), -1);

    EXPECT_EQ(IpcApiRegister(&head, 0x112, &First), 0);
    EXPECT_EQ(IpcApiRegister(&head, 0x111, &Second), 0);
    EXPECT_EQ(IpcApiRegister(&head, 0x112, &Second), -1);
    ASSERT_NE(IpcApiFindNode(&head, 0x112), nullptr);
    EXPECT_EQ(IpcApiFindNode(&head, 0x112)->handler, &First);
    EXPECT_EQ(IpcApiFindNode(&head, 0x111)->handler, &Second);

    EXPECT_EQ(IpcApiUnRegister(&head, 0x112, &Second), 0) << "the handler is not compared";
    EXPECT_EQ(IpcApiFindNode(&head, 0x112), nullptr);
    EXPECT_EQ(IpcApiRegister(&head, 0x112, &Second), 0) << "the code is free again";
    EXPECT_EQ(IpcApiUnRegister(&head, 0x111, nullptr), 0);
    EXPECT_EQ(IpcApiUnRegister(&head, 0x112, nullptr), 0);
}

}  // namespace
