#include "client/ctl/output.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include <nlohmann/json.hpp>

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

const char* ColourOf(Style style) {
    switch (style) {
        case Style::kPlain:
            break;
        case Style::kGood:
            return "\x1b[32m";
        case Style::kBad:
            return "\x1b[31m";
        case Style::kDim:
            return "\x1b[2m";
    }
    return "";
}

// Columns are counted in characters: continuation bytes of UTF-8 take no room.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::vector<std::size_t> ColumnWidths(const std::vector<std::vector<Cell>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        if (row.size() > widths.size()) widths.resize(row.size(), 0);
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], WidthOf(row[i].text));
    }
    return widths;
}

std::string RenderRow(const std::vector<Cell>& row, const std::vector<std::size_t>& widths, std::size_t gapBlanks,
                      bool withColour) {
    std::string line;
    std::size_t pending = 0;  // blanks before the next cell that has text
    for (std::size_t i = 0; i < row.size(); ++i) {
        const Cell& cell = row[i];
        if (!cell.text.empty()) {
            line.append(pending, ' ');
            pending = 0;
            const bool coloured = withColour && cell.style != Style::kPlain;
            line += coloured ? fmt::format("{}{}\x1b[0m", ColourOf(cell.style), cell.text) : cell.text;
        }
        pending += widths[i] - WidthOf(cell.text) + gapBlanks;
    }
    return line + "\n";
}

std::string DumpCompact(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

bool IsListOfRecords(const ordered_json& value) {
    return value.is_array() && !value.empty() && value.front().is_object();
}

void WriteJson(const ordered_json& value, std::string& text) {
    if (IsListOfRecords(value)) {
        text += "[";
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (i > 0) text += ",\n ";
            WriteJson(value[i], text);
        }
        text += "]";
    } else if (value.is_object()) {
        text += "{";
        bool isFirst = true;
        for (const auto& [key, member] : value.items()) {
            if (!isFirst) text += ",";
            isFirst = false;
            text += DumpCompact(key) + ":";
            if (IsListOfRecords(member)) {
                std::string list;
                WriteJson(member, list);
                text += list.insert(1, "\n ");
            } else {
                WriteJson(member, text);
            }
        }
        text += "}";
    } else {
        text += DumpCompact(value);
    }
}

using FieldValues = std::map<std::string, std::string>;

std::string FieldText(const ordered_json& value) {
    if (value.is_null()) return "";
    return value.is_string() ? value.get<std::string>() : DumpCompact(value);
}

// Adds the record's own fields and those of records directly in it. Values from outside give way.
void CollectFields(const ordered_json& record, FieldValues& values) {
    for (const auto& [key, member] : record.items()) {
        if (member.is_object()) {
            CollectFields(member, values);
        } else if (!member.is_array() || !IsListOfRecords(member)) {
            values[key] = FieldText(member);
        }
    }
}

class FieldLines {
  public:
    explicit FieldLines(const std::vector<std::string>& fields) : fields_(fields) {}

    // Goes into lists within the record only for fields that it does not have itself.
    void Add(const ordered_json& record, FieldValues values) {
        if (record.is_array()) {
            for (const auto& element : record)
                Add(element, values);
            return;
        }
        if (!record.is_object()) return;
        CollectFields(record, values);
        const auto isKnown = [&](const std::string& field) { return values.count(field) != 0; };
        if (!std::all_of(fields_.begin(), fields_.end(), isKnown) && AddLists(record, values)) return;
        if (std::any_of(fields_.begin(), fields_.end(), isKnown)) AddLine(values);
    }
    [[nodiscard]] const std::string& Text() const {
        return text_;
    }

  private:
    bool AddLists(const ordered_json& record, const FieldValues& values) {
        const std::size_t before = text_.size();
        for (const auto& [key, member] : record.items()) {
            if (IsListOfRecords(member)) Add(member, values);
        }
        return text_.size() > before;
    }
    void AddLine(FieldValues& values) {
        for (std::size_t i = 0; i < fields_.size(); ++i)
            text_ += (i > 0 ? "\t" : "") + values[fields_[i]];
        text_ += "\n";
    }

    const std::vector<std::string>& fields_;
    std::string text_;
};

}  // namespace

std::string RenderTable(const Table& table, bool withHeader, bool withColour) {
    std::vector<std::vector<Cell>> rows;
    if (withHeader && !table.header.empty()) {
        auto& header = rows.emplace_back();
        for (const std::string& title : table.header)
            header.push_back({title, Style::kDim});
    }
    rows.insert(rows.end(), table.rows.begin(), table.rows.end());
    const auto widths = ColumnWidths(rows);
    std::string text;
    if (!table.preamble.empty())
        text = RenderRow(table.preamble, ColumnWidths({table.preamble}), table.gapBlanks, withColour);
    for (const auto& row : rows)
        text += RenderRow(row, widths, table.gapBlanks, withColour);
    return text;
}

std::string RenderJson(const ordered_json& document) {
    std::string text;
    WriteJson(document, text);
    return text + "\n";
}

std::optional<std::string> RenderFields(const ordered_json& document, const std::vector<std::string>& fields) {
    FieldLines lines(fields);
    lines.Add(document, {});
    const bool hasRecords = document.is_object() || IsListOfRecords(document);
    if (lines.Text().empty() && hasRecords) return std::nullopt;
    return lines.Text();
}

std::string HumanKib(long kib) {
    constexpr long kKibPerMib = 1024;
    if (kib < kKibPerMib) return fmt::format("{} KiB", kib);
    return fmt::format("{:.1f} MiB", static_cast<double>(kib) / kKibPerMib);
}

std::string HumanDuration(long seconds) {
    constexpr long kMinute = 60;
    constexpr long kHour = 60 * kMinute;
    constexpr long kDay = 24 * kHour;
    if (seconds >= kDay) return fmt::format("{}d {}h", seconds / kDay, seconds % kDay / kHour);
    if (seconds >= kHour) return fmt::format("{}h {}m", seconds / kHour, seconds % kHour / kMinute);
    if (seconds >= kMinute) return fmt::format("{}m {}s", seconds / kMinute, seconds % kMinute);
    return fmt::format("{}s", seconds);
}

}  // namespace tessel::ctl
