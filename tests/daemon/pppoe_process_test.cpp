// The program that dials: what the shell makes of its line, and how it is found again.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/files.h"
#include "tests/support/lines.h"
#include "tests/support/pppoe.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;

// Records its argument vector, a word in a line, and stays.
constexpr char kProgram[] = R"perl(#!/usr/bin/perl
open(my $file, '>', '/tmp/argv.new');
print $file map { "$_\n" } @ARGV;
close($file);
rename('/tmp/argv.new', "/tmp/argv.$$");
sleep 1 while 1;
)perl";

class PppoeProcess : public testing::Test {
  protected:
    PppoeProcess() {
        std::filesystem::create_directory("/tmp/pppoe");
        WriteFile("/tmp/pppoe/pppd", kProgram);
        chmod("/tmp/pppoe/pppd", 0755);
        setenv("PATH", ("/tmp/pppoe:" + std::string(getenv("PATH"))).c_str(), 1);
    }
    // Dials a link of a family; the program's pid.
    static pid_t Dial(u16 family, const TNetPppoeConf& conf) {
        EXPECT_EQ(RequestStatus(0x601, DialRequest(family, conf)), 0);
        pid_t pid = 0;
        EXPECT_TRUE(Eventually([&] {
            for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
                const std::string name = entry.path().filename();
                if (name.starts_with("argv.") && name != "argv.new") pid = std::stoi(name.substr(5));
            }
            return pid != 0;
        }));
        return pid;
    }
    static std::vector<std::string> TakeWords(pid_t pid) {
        const std::string path = "/tmp/argv." + std::to_string(pid);
        std::vector<std::string> words = Split(ReadFile(path), "\n");
        words.pop_back();  // behind the last end of a line
        std::filesystem::remove(path);
        return words;
    }
};

TEST_F(PppoeProcess, GetsEveryByteAndIsKilledByAStop) {
    const Daemon daemon;
    std::string bytes;
    for (int c = ' '; c <= 0xFF; ++c) {
        if (c != 0x7F) bytes += static_cast<char>(c);
    }
    const pid_t whole = Dial(2, Link("-u ser's", bytes, "isp"));
    EXPECT_THAT(TakeWords(whole),
                ElementsAre("pty", " pppoe -I eth0 -S isp -T 80 -U  -m 1412 ", "noipdefault", "tessel_pppoe", "noauth",
                            "default-asyncmap", "hide-password", "nodetach", "mtu", "1492", "mru", "1492", "noaccomp",
                            "nodeflate", "nopcomp", "novj", "novjccomp", "defaultroute", "usepeerdns", "maxfail", "0",
                            "user", "-u ser's", "password", bytes, "noipv6"));
    const pid_t josh = Dial(10, Link("josh", "$(touch /tmp/hostile)`touch /tmp/hostile`'; touch /tmp/hostile '"));
    EXPECT_EQ(TakeWords(josh).size(), 27U);
    EXPECT_FALSE(std::filesystem::exists("/tmp/hostile"));
    for (const auto& [pid, family] : {std::pair<pid_t, u16>{josh, 10}, {whole, 2}}) {
        const std::string cmdline = "/proc/" + std::to_string(pid) + "/cmdline";  // empty once it has ended
        EXPECT_NE(ReadFile(cmdline), "");
        EXPECT_EQ(RequestStatus(0x602, Bytes(family)), 0);
        EXPECT_TRUE(Eventually([&] { return ReadFile(cmdline).empty(); }));
        EXPECT_EQ(RequestStatus(0x602, Bytes(family)), 0) << "nothing to stop";
    }
}

}  // namespace
}  // namespace tessel::test
