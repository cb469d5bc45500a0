// The web server: its two lines, and how they fail.
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

TEST(WebServer, IsStartedAndKilled) {
    const char* const start = "lighttpd -f /usr/lighttpd/lighttpd.conf -m /usr/lighttpd/lib";
    const char* const stop = "killall -9 lighttpd";
    LoggedTools tools;
    const std::string line(start);
    tools.Check({
        {"start", {0x301, "abcd"}, 0, start, ("webs_start: " + line).c_str()},
        {"start without the value", {0x301, ""}, 0, start},
        {"stop", {0x302, ""}, 0, stop, "webs_stop: killall -9 lighttpd"},
    });
    tools.Fail({start, stop});
    tools.Check({
        {"second server",
         {0x301, "abcd"},
         -1,
         start,
         ("webs_start: " + line + "; the child process error!; " + line + "; apid_webs_start: webs start error!")
             .c_str()},
        {"none to stop",
         {0x302, ""},
         -1,
         stop,
         "webs_stop: killall -9 lighttpd; the child process error!; killall -9 lighttpd; apid_webs_stop: webs stop "
         "error!"},
    });
}

}  // namespace
}  // namespace tessel::test
