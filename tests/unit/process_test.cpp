#include "core/process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/files.h"

namespace {

using tessel::test::WriteFile;

TEST(Processes, AreSearchedByNameAndByCommandLine) {
    using namespace std::string_literals;
    const std::string directory = "/tmp/process-test/";
    for (const auto& [pid, name, cmdline] : {std::tuple{"300", "udhcpc", "udhcpc\0-i\0eth0\0"s},
                                             {"301", "udhcpc6", "udhcpc6\0-i\0eth1\0"s},
                                             {"302", "sh", "sh\0-c\0udhcpc -i eth1\0"s}}) {
        std::filesystem::create_directories(directory + pid);
        WriteFile(directory + pid + "/status", "Name:\t"s + name + "\nState:\tS (udhcpc)\n");
        WriteFile(directory + pid + "/cmdline", cmdline);
    }
    std::filesystem::create_directories(directory + "empty");
    WriteFile(directory + "400", "a file, not a process");

    EXPECT_EQ(GetServicePid(directory.c_str(), "udhcpc6"), 301);
    EXPECT_EQ(GetServicePid(directory.c_str(), "State"), 0) << "only the first line counts";
    EXPECT_EQ(GetServicePidFromCmdline(directory.c_str(), "udhcpc -i", "eth0"), 300);
    EXPECT_EQ(GetServicePidFromCmdline(directory.c_str(), "pppd", nullptr), 0);
    EXPECT_EQ(GetServicePidFromCmdline2(directory.c_str(), "-i eth1", nullptr, "sh -c"), 301);
    EXPECT_EQ(GetServicePidFromCmdline2(directory.c_str(), "udhcpc", nullptr, nullptr), -1);
    EXPECT_EQ(GetServicePid("/tmp/no-such-directory/", "x"), -1);
    EXPECT_EQ(GetServicePidFromCmdline("/tmp/no-such-directory/", "x", nullptr), -1);
}

TEST(CheckCmdByPid, ComparesTheCommandName) {
    EXPECT_EQ(CheckCmdByPid(getpid(), "core_test"), 1);
    EXPECT_EQ(CheckCmdByPid(getpid(), "udhcpc"), 0);
    EXPECT_EQ(CheckCmdByPid(999999, "core_test"), 0);
    EXPECT_EQ(CheckCmdByPid(-1, "core_test"), 0);
}

}  // namespace
