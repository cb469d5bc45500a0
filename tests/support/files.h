// Small files that tests write and read, and waiting for something to happen.
#pragma once

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

namespace tessel::test {

// Empty when the file cannot be read.
inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
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

}  // namespace tessel::test
