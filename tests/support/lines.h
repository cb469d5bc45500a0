// Lines as one text, so that rows of tables stay short.
#pragma once

#include <string>
#include <vector>

namespace tessel::test {

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

}  // namespace tessel::test
