// Programs of the daemon's services that do nothing but stay and note what reaches them.
#pragma once

#include <signal.h>

#include <algorithm>

#include "core/process.h"
#include "tests/support/files.h"

namespace tessel::test {

// They lie in front of PATH. Each notes its arguments and blocked signals when it starts, and every signal that it
// gets: "udhcpc -i eth0 ... blocked 10 12 15", "udhcpc eth0 USR1". "kill" is noted, too, and then does its work.
class StandInClients {
  public:
    StandInClients() {
        for (const char* name : {"/udhcpc", "/udhcpc6", "/udhcpd", "/pppd"})
            WriteProgram(directory_ + name, kClient);
        WriteProgram(directory_ + "/kill", "#!/bin/sh\necho \"kill $*\" | sed 's/ [0-9]*$//' >> " + directory_ +
                                               "/noted\nexec /bin/kill \"$@\"\n");
        WriteFile("/etc/scripts/udhcpc.script", "");
        WriteFile("/etc/scripts/udhcpc6.script", "");
    }

    // What was noted since the last call, once there are so many lines: sorted, and joined by "; ".
    std::string Take(std::size_t count) {
        std::vector<std::string> lines;
        EXPECT_TRUE(Eventually([&] {
            lines = WholeLines(ReadFile(directory_ + "/noted"));
            return lines.size() >= taken_ + count;
        })) << count;
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(std::min(taken_, lines.size())));
        taken_ += lines.size();
        std::sort(lines.begin(), lines.end());
        return Joined(lines);
    }

    // The process of a program on an interface; 0 when there is none.
    static pid_t PidOf(const char* program, const char* interfaceName) {
        return InterfaceProcess{.pattern = program, .word = interfaceName}.Find();
    }

  private:
    static constexpr char kClient[] = R"perl(#!/usr/bin/perl
use POSIX;
my ($here, $name) = $0 =~ m{(.*)/(.*)};
my ($old, $of) = (POSIX::SigSet->new, $ARGV[1]);
sub Note { open(my $noted, '>>', "$here/noted"); syswrite($noted, "@_\n"); }
for my $signal (qw(USR1 USR2)) { $SIG{$signal} = sub { Note($name, $of, $signal); }; }
sigprocmask(SIG_SETMASK, POSIX::SigSet->new, $old);
Note($name, @ARGV, 'blocked', grep { $old->ismember($_) } 1 .. 31);
sleep 1 while 1;
)perl";

    const std::string directory_ = MakeProgramFolder();
    std::size_t taken_ = 0;
};

// Writes a file as the helper scripts do: it appears whole.
inline void WriteResult(const std::string& path, const std::string& text) {
    WriteFile(path + ".beside", text);
    std::filesystem::rename(path + ".beside", path);
}

}  // namespace tessel::test
