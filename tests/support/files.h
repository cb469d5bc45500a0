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

// What a stream has to its end, or to where it cannot be read any more; nothing where there is no stream.
inline std::string ReadAll(std::FILE* stream, int (*close)(std::FILE*)) {
    std::string text;
    if (stream == nullptr) return text;
    char bytes[4096];
    for (std::size_t count = 0; (count = fread(bytes, 1, sizeof(bytes), stream)) > 0;)
        text.append(bytes, count);
    close(stream);
    return text;
}

// As far as it can be read: what stands in "/proc" may go meanwhile.
inline std::string ReadFile(const std::string& path) {
    return ReadAll(fopen(path.c_str(), "re"), &fclose);
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
bool Eventually(Condition condition, std::chrono::seconds limit = 10s) {
    const auto deadline = steady_clock::now() + limit;
    while (!condition()) {
        if (steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

// How long something takes.
template <typename Work>
steady_clock::duration TimeOf(Work work) {
    const auto begin = steady_clock::now();
    work();
    return steady_clock::now() - begin;
}

// Whether the system log gets this text. A line is there some time after it was sent.
inline bool IsLogged(std::string_view text) {
    return Eventually([text] { return ReadFile("/var/log/messages").find(text) != std::string::npos; });
}

}  // namespace tessel::test
