// Noted tools themselves.
#include "tests/support/noted.h"

#include "core/exec.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;

TEST(NotedTools, NoteAnswerAndStartNothing) {
    NotedTools tools;
    tools.Answer("tool -x", std::string(3000, 'y'), 3);
    CommandLine line;
    ASSERT_TRUE(ComposeCommand(line, "tool tool -x"));
    ToolOutput output(5);
    EXPECT_EQ(RunForStatus(line, &output), 3);
    EXPECT_STREQ(output.text, "yyyyy");
    EXPECT_TRUE(output.isCut);
    EXPECT_EQ(tessel::Run(line), -1);
    EXPECT_EQ(RunShell("echo 1 > /tmp/no-such-file"), 0);
    EXPECT_EQ(StartDetached(line), 0);
    EXPECT_THAT(tools.TakeRuns(), ElementsAre("tool -x", "tool -x", "sh -c echo 1 > /tmp/no-such-file", "tool -x &"));
    EXPECT_STREQ(line.text, "tool tool -x") << "running does not destroy a line";
}

TEST(NotedTools, ServeAndLog) {
    NotedTools tools;
    LoggedLines log(2);
    EXPECT_EQ(tools.Status(0x111, "no-such-interface"), -1);
    EXPECT_EQ(tools.Request(0x11B, "x"), std::nullopt) << "a request of a wrong size gets no reply";
    EXPECT_THAT(log.Take(), testing::Contains("ApidMtuSet: MtuSet error!"));
    EXPECT_THAT(log.Take(), ElementsAre());
}

}  // namespace
}  // namespace tessel::test
