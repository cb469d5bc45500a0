// Files with the rules of the packet filter: what iptables-save and ip6tables-save print, one after the other.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/failure.h"
#include "client/ctl/options.h"

namespace tessel::ctl {

// The rules of one family.
struct RuleSection {
    std::string text;  // for the family's restore tool
    std::vector<std::string> tables;
    std::size_t rules = 0;
};

struct RuleFile {
    std::string problem;                  // not empty: nothing in it is to be trusted
    std::map<int, RuleSection> sections;  // by TESSEL_FAMILY_...
};

// Takes nothing but the lines that save tools print, and no file that was cut off. Lines before the first heading of a
// save tool are of `unheadedFamily`; nothing: such a file is refused.
[[nodiscard]] RuleFile ParseRuleFile(std::string_view text, std::optional<int> unheadedFamily);

// What the save tools printed for these families, as a file.
[[nodiscard]] std::string RenderRuleFile(const std::map<int, std::string>& saved);

// The whole of a plain file of moderate size, or why it is none.
struct FileText {
    std::string problem;
    std::string text;
};
[[nodiscard]] FileText ReadRuleFile(const std::string& path);

// Why the file could not be written; nothing: it is there, whole, in the place of what was there before.
[[nodiscard]] std::optional<std::string> ReplaceFile(const std::string& path, std::string_view text);

}  // namespace tessel::ctl
