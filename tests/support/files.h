// Small files that tests write and read, and waiting for something to happen.
#pragma once

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace tessel::test {

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
