// Whole files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessel::ctl {

// Everything that is left to read; nothing: it failed, and errno says why.
[[nodiscard]] std::optional<std::string> ReadToEnd(int fd);

// "-" is standard input. Throws a Failure, for "ASKED: ...", when it cannot be read.
[[nodiscard]] std::string ReadWholeFile(std::string_view asked, const std::string& path);

// The file is there whole, in the place of what was there before, or not at all. Throws a Failure.
void ReplaceFile(std::string_view asked, const std::string& path, const std::string& text);

}  // namespace tessel::ctl
