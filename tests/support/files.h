// Small files that tests write and read, waiting for something to happen, and the words that most tests use.
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

// A new folder in front of PATH.
inline std::string MakeProgramFolder() {
    char pattern[] = "/tmp/programs-XXXXXX";
    const std::string folder = mkdtemp(pattern);
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
