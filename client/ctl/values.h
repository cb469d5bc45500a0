// Values that stand in capitals in word patterns: which words are proper ones, and which ones there are.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

namespace tessel::ctl {

// What is wrong with `word` as a value of this kind ("IF"); nothing: it may be sent.
[[nodiscard]] std::optional<std::string> CheckValue(std::string_view kind, const std::string& word);

// Values worth offering, as far as they can be listed.
[[nodiscard]] std::vector<std::string> KnownValues(std::string_view kind);

// A decimal or 0x number of at most 32 bits.
[[nodiscard]] std::optional<u32> ParseNumber(std::string_view text);

}  // namespace tessel::ctl
