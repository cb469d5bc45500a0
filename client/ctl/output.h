// How results look: a table for people, one JSON document, or chosen fields for scripts. All come from the document.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// Rows of cells as aligned columns, two blanks apart, no wider than needed, without blanks at the ends.
using Rows = std::vector<std::vector<std::string>>;
[[nodiscard]] std::string RenderRows(const Rows& rows, bool withColour = false);

// Lines that are too wide continue on the next one, below their last column, or four blanks in.
[[nodiscard]] std::string Wrapped(const std::string& text, std::size_t width);

// The document's records by a command's columns (command.h), a line each: those of nested lists with the fields of the
// records around them. Words that stand for a state are coloured.
[[nodiscard]] std::string RenderTable(const Json& document, std::string_view columns, bool withHeader, bool withColour);

// One document; the records of a list are on lines of their own.
[[nodiscard]] std::string RenderJson(const Json& document);

// The fields of each record, separated by tabs, a record a line, as for a table. "a.b" is a field of a nested record;
// its own name works too. Nothing when there is a field that no record has.
[[nodiscard]] std::optional<std::string> RenderFields(const Json& document, const std::vector<std::string>& fields);

// A record's template: see Command::columns.
[[nodiscard]] std::string FillTemplate(std::string_view text, const Json& record);

// "12.3 MiB", "1d 2h", "12.3 Mbit/s".
[[nodiscard]] std::string HumanKib(long long kib);
[[nodiscard]] std::string HumanDuration(long long seconds);
[[nodiscard]] std::string HumanRate(long long bitsPerSecond);

}  // namespace tessel::ctl
