// How results look: a table for people, one JSON document, or chosen fields for scripts.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace tessel::ctl {

enum class Style { kPlain, kGood, kBad, kDim };

struct Cell {
    std::string text;
    Style style = Style::kPlain;
};

struct Table {
    std::vector<Cell> preamble;  // one line above, with columns of its own
    std::vector<std::string> header;
    std::vector<std::vector<Cell>> rows;
    std::size_t gapBlanks = 2;  // between columns
};

// Aligned columns, no wider than needed, without blanks at the ends.
[[nodiscard]] std::string RenderTable(const Table& table, bool withHeader, bool withColour);

// One document; the records of a list stand on lines of their own.
[[nodiscard]] std::string RenderJson(const nlohmann::ordered_json& document);

// The fields of each record, separated by tabs, a record a line. Fields of nested records are found by their own names
// and stand beside those of the record around them. Null and absent ones are empty. Nothing when no record has one of
// the fields.
[[nodiscard]] std::optional<std::string> RenderFields(const nlohmann::ordered_json& document,
                                                      const std::vector<std::string>& fields);

// "12.3 MiB", "1d 2h".
[[nodiscard]] std::string HumanKib(long kib);
[[nodiscard]] std::string HumanDuration(long seconds);

}  // namespace tessel::ctl
