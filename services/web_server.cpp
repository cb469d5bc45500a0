#include "services/web_server.h"

#include "core/exec.h"
#include "core/log.h"

using tessel::CommandLine;
using tessel::ComposeCommand;

namespace {

// Every line this file runs: the program, and its argument vector.
struct ServerLine {
    const char* program;
    const char* arguments;
};
constexpr ServerLine kStart{"lighttpd", "lighttpd -f /usr/lighttpd/lighttpd.conf -m /usr/lighttpd/lib"};
constexpr ServerLine kStop{"killall", "killall -9 lighttpd"};

i32 RunServerLine(const ServerLine& line, tessel::CallSite where = tessel::CallSite::Current()) {
    TESSEL_DBG_AT(where, "%s", line.arguments);
    CommandLine command(where);
    if (!ComposeCommand(command, "%s %s", line.program, line.arguments)) return -1;
    if (RunForStatus(command) == 0) return 0;
    TESSEL_ERR_AT(where, "the child process error!");
    TESSEL_ERR_AT(where, "%s", line.arguments);
    return -1;
}

}  // namespace

i32 webs_start(u32 /*value*/) {
    return RunServerLine(kStart);
}

i32 webs_stop() {
    return RunServerLine(kStop);
}
