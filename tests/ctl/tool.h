// The tool, run within this process against a daemon that really runs, and the lines that it is given.
#pragma once

#include "client/ctl/tesselctl.h"
#include "client/ctl/text.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"

namespace tessel::test {

using namespace ctl;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

inline std::string Contents(std::FILE* file) {
    std::string text(static_cast<std::size_t>(ftell(file)), '\0');
    rewind(file);
    text.resize(fread(text.data(), 1, text.size(), file));
    fclose(file);
    return text;
}

inline ToolRun RunLine(const std::string& line) {
    std::FILE* out = tmpfile();
    std::FILE* err = tmpfile();
    const int status = ctl::RunTool(WordsIn(line), out, err);
    return {status, Contents(out), Contents(err)};
}

// What a line that ends with this status prints on standard output.
inline std::string Printed(const std::string& line, int status = kExitDone) {
    const ToolRun run = RunLine(line);
    EXPECT_EQ(run.status, status) << line << "\n" << run.out << run.err;
    return run.out;
}

// The document that a line prints with -j.
inline Json DocumentOf(const std::string& line) {
    const ToolRun run = RunLine(line + " -j");
    EXPECT_TRUE(Json::accept(run.out)) << line << "\n" << run.out << run.err;
    return Json::parse(run.out, nullptr, false);
}

struct Expected {
    std::string line;
    int status;
    std::string text;  // in standard output or standard error
};

inline void ExpectAll(std::initializer_list<Expected> cases) {
    for (const Expected& one : cases) {
        const ToolRun run = RunLine(one.line);
        EXPECT_EQ(run.status, one.status) << one.line << "\n" << run.out << run.err;
        EXPECT_THAT(run.out + run.err, HasSubstr(one.text)) << one.line;
    }
}

// As listeners are named.
inline const std::string kThisProgram = "ctl_test (pid " + std::to_string(getpid()) + ")";

// Runs lines of the device's own tools in the sandbox that the tests live in.
inline void Prepare(std::initializer_list<const char*> lines) {
    for (const char* line : lines)
        RunOnDevice(line);
}

// Two of the device's links have addresses, and so has the host at the other end of the first one.
inline void PrepareLinks() {
    Prepare({"ip addr add 192.168.1.20/24 dev eth0", "ip addr add 2001:db8::5/64 dev eth0 nodad",
             "ip addr add 192.168.2.20/24 dev eth1", "ip -n far addr add 192.168.1.1/24 dev far0"});
}

// From here on the tool is used in a remote session, as sshd(8) describes it.
inline void EnterSession(const char* peer = "192.168.1.77", const char* device = "192.168.1.20") {
    setenv("SSH_CONNECTION", Format("{} 50000 {} 22", peer, device).c_str(), 1);
}

}  // namespace tessel::test
