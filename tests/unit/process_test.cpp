#include "core/process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "core/system.h"
#include "tests/support/files.h"

namespace {

using tessel::test::WriteFile;

class ProcessDirectory : public testing::Test {
  protected:
    void AddProcess(const std::string& pid, const std::string& name, const std::string& cmdline) {
        std::filesystem::create_directories(directory + pid);
        WriteFile(directory + pid + "/status", "Name:\t" + name + "\nState:\tS (udhcpc)\n");
        WriteFile(directory + pid + "/cmdline", cmdline);
    }
    const std::string directory = "/tmp/process-test/";
};

TEST_F(ProcessDirectory, IsSearchedByNameAndByCommandLine) {
    using namespace std::string_literals;
    AddProcess("300", "udhcpc", "udhcpc\0-i\0eth0\0"s);
    AddProcess("301", "udhcpc6", "udhcpc6\0-i\0eth1\0"s);
    AddProcess("302", "sh", "sh\0-c\0udhcpc -i eth1\0"s);
    std::filesystem::create_directories(directory + "empty");
    WriteFile(directory + "400", "a file, not a process");

    EXPECT_EQ(GetServicePid(directory.c_str(), "udhcpc6"), 301);
    EXPECT_EQ(GetServicePid(directory.c_str(), "State"), 0) << "only the first line counts";
    EXPECT_EQ(GetServicePidFromCmdline(directory.c_str(), "udhcpc -i", "eth0"), 300);
    EXPECT_EQ(GetServicePidFromCmdline(directory.c_str(), "udhcpc6", nullptr), 301);
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

TEST(System, TellsDesktopFromDevice) {
    WriteFile("/etc/issue", "Welcome\nUbuntu 20.04 LTS \\n \\l\n");
    EXPECT_EQ(IsUbuntuHost(), 1);
    WriteFile("/etc/issue", "Embedded device\n");
    EXPECT_EQ(IsUbuntuHost(), 0);
    std::filesystem::remove("/etc/issue");
    EXPECT_EQ(IsUbuntuHost(), 0);
}

TEST(System, ReadsTheStartOfAFile) {
    WriteFile("/tmp/file", "0123456789");
    char buffer[8] = "#######";
    EXPECT_EQ(ReadFileToBuf("/tmp/file", buffer, 4), 4);
    EXPECT_STREQ(buffer, "0123###");
    EXPECT_EQ(ReadFileToBuf("/tmp/no-such-file", buffer, 4), -1);
    EXPECT_EQ(buffer[0], '\0');
}

}  // namespace
