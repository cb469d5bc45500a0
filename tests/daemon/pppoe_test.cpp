// PPPoE: the line that the shell gets, and which process a stop ends.
#include "services/pppoe.h"

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "tests/support/logged.h"
#include "tests/support/pppoe.h"

namespace tessel::test {
namespace {

using testing::EndsWith;

constexpr u32 kStart = 0x601;
constexpr u32 kStop = 0x602;
constexpr char kPty[] = "pppd pty \"pppoe -I eth0 -T 80 -U  -m 1412\" ";
constexpr char kOptions[] =
    "noipdefault tessel_pppoe noauth default-asyncmap hide-password nodetach  mtu 1492 mru 1492 noaccomp nodeflate "
    "nopcomp novj novjccomp defaultroute usepeerdns ";

std::string Stop(u16 family) {
    return std::string(Bytes(family));
}

// A started line, as it is noted.
std::string Started(const std::string& rest, const std::string& pty = kPty) {
    return "sh -c " + pty + kOptions + rest + " &";
}

TNetPppoeConf LinkWithAllOptions() {
    TNetPppoeConf conf = Link("u", "p", "isp.net/1", "eth1.7");
    conf.dwPersist = 1;
    conf.dwReserved = 9;
    conf.dwDebug = 2;
    conf.dwHoldoff = 3;
    conf.dwLcpEchoInterval = 4;
    conf.dwLcpEchoFailure = 5;
    conf.dwMaxfail = 6;
    return conf;
}

TEST(Pppoe, LinesOfALink) {
    LoggedTools tools(4);
    TNetPppoeConf large = Link();
    large.dwMaxfail = large.dwLcpEchoFailure = ~0U;
    const std::string whole = DialRequest(10, Link());
    WriteFile("/tmp/pppd.txt", "");
    tools.Check({
        {"nothing but an interface",
         {kStart, whole},
         0,
         Started("maxfail 0 noip +ipv6"),
         ("ApidPppoeStart: wSinFamily : 10; PppoeClientStart: PppoeClientStart cmd: [" + std::string(kPty) + kOptions +
          "maxfail 0 noip +ipv6]")
             .c_str()},
        {"all options",
         {kStart, DialRequest(11, LinkWithAllOptions())},
         0,
         Started("maxfail 6 holdoff 3 persist debug lcp-echo-interval 4 lcp-echo-failure 5 user u password p +ipv6",
                 "pppd pty \" pppoe -I eth1.7 -S isp.net/1 -T 80 -U  -m 1412 \" ")},
        {"numbers are signed", {kStart, DialRequest(2, large)}, 0, Started("maxfail -1 lcp-echo-failure -1 noipv6")},
        {"another family", {kStart, DialRequest(7, Link("u"))}, 0, Started("maxfail 0 user u ")},
        {"cut behind the name", {kStart, whole.substr(0, 2 + 793 + 4)}, 0, Started("maxfail 0 noip +ipv6")},
        {"cut within the name",
         {kStart, whole.substr(0, 2 + 793 + 3)},
         0,
         Started("maxfail 0 noip +ipv6", "pppd pty \"pppoe -I eth -T 80 -U  -m 1412\" ")},
    });
    EXPECT_NE(access("/tmp/pppd.txt", F_OK), 0);
}

TEST(Pppoe, TextsAreOneWordOfTheShell) {
    LoggedTools tools;
    const std::pair<std::string, std::string> rows[] = {
        {"A.z_9@%+=:,/-", "A.z_9@%+=:,/-"},
        {"-x", "'-x'"},
        {"two words", "'two words'"},
        {"$(reboot)`x`\"\\", "'$(reboot)`x`\"\\'"},
        {"it's", "'it'\\''s'"},
        {"'", "''\\'''"},
        {"~", "'~'"},
        {"p\xc3\xa4ss", "'p\xc3\xa4ss'"},
    };
    for (const auto& [text, word] : rows) {
        EXPECT_EQ(tools.Status(kStart, DialRequest(2, Link(text, text))), 0) << text;
        EXPECT_EQ(Joined(tools.TakeRuns()), Started("maxfail 0 user " + word + " password " + word + " noipv6"));
    }
}

TEST(Pppoe, WhatNoQuotingMakesSafeIsRefused) {
    LoggedTools tools;
    std::vector<std::pair<TNetPppoeConf, std::string>> rows = {
        {Link("", "", "", "sixteen-letters-"), "interface"},
        {Link("", "", "", ""), "interface"},
        {Link("", "", "", "a/b"), "interface"},
        {Link("", "", "", "a:1"), "interface"},
        {Link("", "", "", ".."), "interface"},
        {Link("", "", "-s"), "service"},
    };
    for (const char c : std::string("\x01\t\n\r\x1f\x7f")) {
        rows.emplace_back(Link(std::string("user") + c), "user");
        rows.emplace_back(Link("", c + std::string("password")), "password");
    }
    for (const char c : std::string(" \"'$`\\;&|<>(){}[]*?!~#^\n\x7f\x80\xff")) {
        rows.emplace_back(Link("", "", std::string("isp") + c), "service");
        rows.emplace_back(Link("", "", "", std::string("eth") + c), "interface");
    }
    for (const auto& [conf, field] : rows) {
        EXPECT_EQ(tools.Status(kStart, DialRequest(2, conf)), -1) << field;
        EXPECT_EQ(tools.TakeLog(), "ApidPppoeStart: wSinFamily : 2; PppoeClientStart: the pppoe " + field +
                                       " is invalid!; ApidPppoeStart: pppoe start error!");
        EXPECT_EQ(Joined(tools.TakeRuns()), "") << field;
    }
    EXPECT_EQ(tools.Status(kStart, ""), -1);
}

TEST(Pppoe, ALineHasRoomFor999Characters) {
    LoggedTools tools;
    const std::string pty = "pppd pty \" pppoe -I eth0 -S  -T 80 -U  -m 1412 \" ";  // without the service
    const std::string others(254, 'x');
    const std::size_t room = 999 - std::string("maxfail 0 user  password  noipv6").append(pty + kOptions).size() - 508;
    ASSERT_LE(room, 254U);
    for (const std::string& password : {std::string(room, 'p'), '\'' + std::string(room - 6, 'p')}) {
        for (const bool isLonger : {false, true}) {
            WriteFile("/tmp/pppd.txt", "");
            const TNetPppoeConf conf = Link(others, password + (isLonger ? "p" : ""), others);
            EXPECT_EQ(tools.Status(kStart, DialRequest(2, conf)), isLonger ? -1 : 0);
            EXPECT_EQ(tools.TakeRuns().size(), isLonger ? 0U : 1U);
            EXPECT_EQ(access("/tmp/pppd.txt", F_OK) == 0, isLonger) << "refused before anything is touched";
            const std::string log = tools.TakeLog();
            EXPECT_EQ(log.find("PppoeClientStart: the cmd is too long!; pppd pty \"") != std::string::npos, isLonger);
            EXPECT_EQ(log.ends_with("pppoe start error!"), isLonger);
        }
    }
    const std::string quotes(255, '\'');
    EXPECT_EQ(tools.Status(kStart, DialRequest(2, Link(quotes, quotes))), -1) << "the longest words, unterminated";
    EXPECT_EQ(tools.Status(kStart, DialRequest(2, Link("u", quotes))), -1);
}

// A sleeping program of this name with this command line, as if the daemon had started it.
class Sleeper {
  public:
    Sleeper(const std::string& program, std::vector<std::string> words) {
        const std::string path = "/tmp/" + program;
        EXPECT_EQ(std::system(("ln -sf /usr/bin/perl " + path).c_str()), 0);
        // Read from the standard input, so that the words are all that stands behind it.
        words.insert(words.begin(), {program, "-"});
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        WriteFile("/tmp/sleep.pl", "kill STOP => $$;");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/tmp/sleep.pl", O_RDONLY, 0);
        EXPECT_EQ(posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        EXPECT_EQ(waitpid(pid_, nullptr, WUNTRACED), pid_);
    }
    ~Sleeper() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;
    [[nodiscard]] std::string KillLine() const {
        return "kill -9 " + std::to_string(pid_);
    }

  private:
    pid_t pid_ = 0;
};

TEST(Pppoe, AStopEndsOneOfItsFamily) {
    LoggedTools tools(4);
    const Sleeper shell("sh", {"-c", "pppd noipv6 +ipv6"});
    const auto stops = [&](u16 family, const std::string& line) {
        EXPECT_EQ(tools.Status(kStop, Stop(family)), 0) << line;
        EXPECT_EQ(Joined(tools.TakeRuns()), line) << family;
    };
    stops(2, "");
    EXPECT_THAT(tools.TakeLog(), testing::ContainsRegex("PppoeClientStop\\([0-9]+\\):pppoe already stop.\\{errno"));
    {
        const Sleeper v4("pppd", {"noipv6"});
        const Sleeper v6("pppd", {"noip", "+ipv6"});
        const Sleeper josh("pppd", {"user", "josh", "noipv6"});
        stops(2, v4.KillLine());
        EXPECT_EQ(tools.TakeLog(),
                  "ApidPppoeStop: wSinFamily : 2; PppoeClientStop: PppoeClientStop cmd " + v4.KillLine());
        stops(10, v6.KillLine());
        stops(11, v6.KillLine());  // whose words contain those of both families
        tools.Answer(v6.KillLine(), "", 3);
        (void)tools.TakeLog();
        stops(10, v6.KillLine());
        EXPECT_THAT(tools.TakeLog(), EndsWith("the child process error:ret=3!"));
    }
    const Sleeper notes("notes", {"user", "josh", "noipv6"});
    const Sleeper other("pppd2", {"user", "josh", "noipv6"});
    const Sleeper part("pppd", {"user", "joshnoipv6"});
    stops(2, "");
    const Sleeper josh("pppd", {"user", "josh", "noipv6"});
    stops(2, josh.KillLine());
    stops(10, "");
    EXPECT_EQ(tools.Status(kStop, Stop(7)), -1);
    EXPECT_THAT(tools.TakeLog(),
                EndsWith("PppoeClientStop wSinFamily 7 is invalid!; ApidPppoeStop: PppoeClientStop error!"));
}

TEST(Pppoe, StartUpMakesARecordOfEachFamily) {
    DaemonPppoeInit();
    ASSERT_TRUE(g_ptDaePppoeInfo != nullptr && g_ptDaePppoeInfo->next != nullptr);
    EXPECT_EQ(g_ptDaePppoeInfo->wSinFamily, 2);
    EXPECT_EQ(g_ptDaePppoeInfo->next->wSinFamily, 10);
    EXPECT_EQ(g_ptDaePppoeInfo->next->next, nullptr);
}

}  // namespace
}  // namespace tessel::test
