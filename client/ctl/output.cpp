#include "client/ctl/output.h"

#include <cmath>
#include <map>

namespace tessel::ctl {

namespace {

// Words that stand for a state.
struct Colour {
    std::string_view word;
    std::string_view code;
};
constexpr Colour kColours[] = {{"up", "32"},   {"on", "32"},           {"running", "32"},   {"down", "31"},
                               {"off", "2"},   {"no carrier", "31"},   {"tentative", "31"}, {"failed", "31"},
                               {"dead", "31"}, {"not answering", "31"}};

std::string Coloured(const std::string& text) {
    const auto* const found = std::find_if(std::begin(kColours), std::end(kColours),
                                           [&](const Colour& colour) { return colour.word == text; });
    return found == std::end(kColours) ? text : Format("\x1b[{}m{}\x1b[0m", found->code, text);
}

// Columns are counted in characters: continuation bytes of UTF-8 take no room.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Dumped(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool IsListOfRecords(const Json& value) {
    return value.is_array() && !value.empty() && value.front().is_object();
}

void WriteJson(const Json& value, std::string& text) {
    const bool isObject = value.is_object();
    if (!isObject && !IsListOfRecords(value)) {
        text += Dumped(value);
        return;
    }
    const char* between = "";
    text += isObject ? "{" : "[";
    for (const auto& [key, member] : value.items()) {
        text += between;
        between = isObject ? "," : ",\n ";
        if (isObject) text += Dumped(key) + (IsListOfRecords(member) ? ":\n " : ":");
        WriteJson(member, text);
    }
    text += isObject ? "}" : "]";
}

// For scripts.
std::string PlainText(const Json& value) {
    if (value.is_null()) return "";
    return value.is_string() ? value.get<std::string>() : Dumped(value);
}

// For people.
std::string ShownText(const std::string& name, const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? name : "";
    if (!value.is_array()) return PlainText(value);
    std::vector<std::string> parts;
    for (const Json& part : value)
        parts.push_back(PlainText(part));
    return Joined(parts, " ");
}

// The fields of a record and of records directly in it, which are known by "outer.inner", too. Of those that have one
// name, the innermost counts.
using Values = std::map<std::string, Json>;

void Collect(const Json& record, const std::string& path, Values& values) {
    for (const auto& [key, member] : record.items()) {
        if (member.is_object()) {
            Collect(member, path + key + ".", values);
        } else if (!IsListOfRecords(member)) {
            values[key] = member;
            if (!path.empty()) values[path + key] = member;
        }
    }
}

// Every record of a document that has one of the fields itself, outermost first, with those of the records around it:
// lists within a record are gone into only when it lacks a field that is wanted.
void FindRecords(const Json& document, const std::vector<std::string>& wanted, std::vector<Values>& found,
                 const std::string& path = "", const Values& outer = {}) {
    if (document.is_array()) {
        for (const Json& element : document)
            FindRecords(element, wanted, found, path, outer);
    }
    if (!document.is_object()) return;
    Values values;
    Collect(document, path, values);
    const auto isKnown = [&](const std::string& field) { return values.count(field) != 0; };
    const bool hasOwn = std::any_of(wanted.begin(), wanted.end(), isKnown);
    values.insert(outer.begin(), outer.end());
    const std::size_t before = found.size();
    const bool hasAll = std::all_of(wanted.begin(), wanted.end(), isKnown);
    for (const auto& [key, member] : document.items()) {
        if (!hasAll && IsListOfRecords(member)) FindRecords(member, wanted, found, path + key + ".", values);
    }
    if (found.size() == before && hasOwn) found.push_back(std::move(values));
}

struct Column {
    std::string title;
    std::string_view pattern;
};

std::vector<Column> ColumnsOf(std::string_view text) {
    std::vector<Column> columns;
    for (const std::string_view column : Split(text, '|')) {
        const std::size_t blank = column.rfind(' ', column.find('{'));
        const bool hasTitle = blank != std::string_view::npos;
        columns.push_back({std::string(column.substr(0, hasTitle ? blank : 0)), column.substr(blank + 1)});
    }
    return columns;
}

// The names in braces.
std::vector<std::string> FieldsIn(std::string_view pattern) {
    std::vector<std::string> fields;
    for (std::size_t at = 0; (at = pattern.find('{', at)) != std::string_view::npos; ++at)
        fields.emplace_back(pattern.substr(at + 1, pattern.find('}', at) - at - 1));
    return fields;
}

// Nothing when none of the fields has text. Blanks beside an empty field go with it.
std::string Filled(std::string_view pattern, const Values& values) {
    std::string text;
    bool hasText = false;
    while (!pattern.empty()) {
        const std::size_t open = std::min(pattern.find('{'), pattern.size());
        text += pattern.substr(0, open);
        if (open == pattern.size()) break;
        const std::size_t close = pattern.find('}', open);
        const std::string name(pattern.substr(open + 1, close - open - 1));
        pattern.remove_prefix(close + 1);
        const auto found = values.find(name);
        const std::string value = found == values.end() ? "" : ShownText(name, found->second);
        hasText = hasText || !value.empty();
        text += value;
        if (value.empty() && pattern.starts_with(' ')) pattern.remove_prefix(1);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return hasText ? text : "";
}

}  // namespace

std::string RenderRows(const Rows& rows, bool withColour) {
    constexpr std::size_t kGap = 2;
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        if (row.size() > widths.size()) widths.resize(row.size(), 0);
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], WidthOf(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::size_t pending = 0;  // blanks before the next cell that has text
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (!row[i].empty()) {
                text.append(pending, ' ');
                pending = 0;
                text += withColour ? Coloured(row[i]) : row[i];
            }
            if (widths[i] > 0) pending += widths[i] - WidthOf(row[i]) + kGap;
        }
        text += "\n";
    }
    return text;
}

std::string RenderTable(const Json& document, std::string_view columns, bool withHeader, bool withColour) {
    const auto all = ColumnsOf(columns);
    std::vector<std::string> titles;
    for (const Column& column : all)
        titles.push_back(column.title);
    std::vector<Values> records;
    FindRecords(document, FieldsIn(columns), records);
    const bool hasTitles = std::any_of(titles.begin(), titles.end(), [](const auto& title) { return !title.empty(); });
    Rows rows;
    if (withHeader && hasTitles && !records.empty()) rows.push_back(titles);
    for (const Values& values : records) {
        auto& row = rows.emplace_back();
        for (const Column& column : all)
            row.push_back(Filled(column.pattern, values));
    }
    return RenderRows(rows, withColour);
}

std::string RenderJson(const Json& document) {
    std::string text;
    WriteJson(document, text);
    return text + "\n";
}

std::optional<std::string> RenderFields(const Json& document, const std::vector<std::string>& fields) {
    std::vector<Values> records;
    FindRecords(document, fields, records);
    const bool hasRecords = document.is_object() || IsListOfRecords(document);
    const bool hasEmptyList = Dumped(document).find("[]") != std::string::npos;  // whose records might have it
    for (const std::string& field : fields) {
        const bool isKnown =
            std::any_of(records.begin(), records.end(), [&](auto& one) { return one.contains(field); });
        if (!isKnown && hasRecords && (records.empty() || !hasEmptyList)) return std::nullopt;
    }
    std::string text;
    for (const Values& values : records) {
        std::vector<std::string> line;
        for (const std::string& field : fields) {
            const auto found = values.find(field);
            line.push_back(found == values.end() ? "" : PlainText(found->second));
        }
        text += Joined(line, "\t") + "\n";
    }
    return text;
}

std::string FillTemplate(std::string_view text, const Json& record) {
    Values values;
    Collect(record, "", values);
    return Filled(text, values);
}

std::string HumanKib(long kib) {
    constexpr long kKibPerMib = 1024;
    if (kib < kKibPerMib) return Format("{} KiB", kib);
    return Format("{:.1f} MiB", static_cast<double>(kib) / kKibPerMib);
}

std::string HumanDuration(long seconds) {
    constexpr long kMinute = 60;
    constexpr long kHour = 60 * kMinute;
    constexpr long kDay = 24 * kHour;
    if (seconds >= kDay) return Format("{}d {}h", seconds / kDay, seconds % kDay / kHour);
    if (seconds >= kHour) return Format("{}h {}m", seconds / kHour, seconds % kHour / kMinute);
    if (seconds >= kMinute) return Format("{}m {}s", seconds / kMinute, seconds % kMinute);
    return Format("{}s", seconds);
}

std::string HumanRate(long long bitsPerSecond) {
    constexpr int kStep = 1000;
    if (bitsPerSecond < kStep) return Format("{} bit/s", bitsPerSecond);
    double rate = static_cast<double>(bitsPerSecond) / kStep;
    const char* unit = "kbit/s";
    for (const char* next : {"Mbit/s", "Gbit/s"}) {
        if (rate < kStep) break;
        rate /= kStep;
        unit = next;
    }
    return Format("{:.1f} {}", rate, unit);
}

}  // namespace tessel::ctl
