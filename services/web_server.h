// The device's web server, a `lighttpd` with a configuration of its own.
#pragma once

#include "core/types.h"

// Starts the server and waits until it has detached itself. The value has no effect. 0, or -1 with a log line: also
// when one already runs, whose port the second cannot get.
[[nodiscard]] i32 webs_start(u32 value);

// Kills every lighttpd. 0, or -1 with a log line: also when none runs.
[[nodiscard]] i32 webs_stop();
