// A request and the lines that it leaves in the log.
#pragma once

#include <string>
#include <vector>

#include "tests/support/noted.h"

namespace tessel::test {

struct LoggedRequest {
    const char* description;
    u32 type;
    std::string request;
    std::vector<std::string> expectedLines;  // "FUNCTION: text"
};

// The lines since the last call, without those of the transport, which name lines of its source, and of looking for
// words.
inline std::vector<std::string> TakeLines(LoggedLines& log) {
    std::vector<std::string> lines = log.Take();
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("IpcApiSendMsg: ") || line.starts_with("TesselFindStrMatchHead: ");
    });
    return lines;
}

inline void CheckLog(const LoggedRequest& row, NotedTools& tools, LoggedLines& log) {
    (void)tools.Request(row.type, row.request);
    EXPECT_THAT(TakeLines(log), testing::ElementsAreArray(row.expectedLines)) << row.description;
}

}  // namespace tessel::test
