// Small files that tests write and read, their lines as one text, waiting for something to happen, and the words that
// most tests use.
#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tessel::test {

using namespace std::chrono_literals;
using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

// As far as it can be read: what stands in "/proc" may go meanwhile.
inline std::string ReadFile(const std::string& path) {
    std::string text;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fopen(path.c_str(), "re"), &fclose);
    if (file == nullptr) return text;
    char bytes[4096];
    for (std::size_t count = 0; (count = fread(bytes, 1, sizeof(bytes), file.get())) > 0;)
        text.append(bytes, count);
    return text;
}

inline void WriteFile(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline void WriteProgram(const std::string& path, std::string_view text) {
    WriteFile(path, text);
    chmod(path.c_str(), 0755);
}

// Lines as one text, so that rows of tables stay short.
inline std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += (&line == lines.data() ? "" : "; ") + line;
    return text;
}

// The parts of a text; none of an empty one.
inline std::vector<std::string> Split(const std::string& text, const std::string& separator = "; ") {
    std::vector<std::string> parts;
    for (std::size_t at = 0, end = 0; !text.empty() && end != std::string::npos; at = end + separator.size()) {
        end = text.find(separator, at);
        parts.push_back(text.substr(at, end - at));
    }
    return parts;
}

// Without what stands behind the last end of a line.
inline std::vector<std::string> WholeLines(const std::string& text) {
    std::vector<std::string> lines = Split(text, "\n");
    if (!lines.empty()) lines.pop_back();
    return lines;
}

// A new folder in front of PATH.
inline std::string MakeProgramFolder() {
    char pattern[] = "/tmp/programs-XXXXXX";
    std::string folder = mkdtemp(pattern);
    setenv("PATH", (folder + ":" + getenv("PATH")).c_str(), 1);
    return folder;
}

// Asks until the condition holds, for so long at most. True when it did.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::seconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Whether the system log gets this text. A line is there some time after it was sent.
inline bool IsLogged(std::string_view text) {
    return Eventually([text] { return ReadFile("/var/log/messages").find(text) != std::string::npos; });
}

}  // namespace tessel::test
