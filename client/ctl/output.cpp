#include "client/ctl/output.h"

#include <map>

namespace tessel::ctl {

namespace {

// Words that stand for a state show it by their colour.
std::string Coloured(const std::string& text) {
    static const std::map<std::string_view, std::string_view> kColours = {
        {"up", "32"},         {"running", "32"},   {"down", "31"},  {"off", "2"},
        {"no carrier", "31"}, {"tentative", "31"}, {"failed", "31"}};
    const auto found = kColours.find(text);
    return found == kColours.end() ? text : Format("\x1b[{}m{}\x1b[0m", found->second, text);
}

// Columns are counted in characters: continuation bytes of UTF-8 take no room.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

// The bytes of the first `width` characters. Neither continuation bytes of UTF-8 nor colours take room.
std::size_t BytesWithin(std::string_view text, std::size_t width) {
    std::size_t at = 0;
    for (std::size_t count = 0; at < text.size(); ++at) {
        if (text[at] == '\x1b') {
            at = std::min(text.find('m', at), text.size() - 1);
        } else if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80 && count++ == width) {
            break;
        }
    }
    return at;
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
    return Joined(value, " ", &PlainText);
}

// The fields of a record and of records directly in it, which are also known as "outer.inner". Of those with the same
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
// lists within a record are searched only when it lacks a field that is wanted.
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
    for (const auto& [key, member] : document.items())
        if (!hasAll && IsListOfRecords(member)) FindRecords(member, wanted, found, path + key + ".", values);
    if (found.size() == before && hasOwn) found.push_back(std::move(values));
}

// The names in braces.
std::vector<std::string> FieldsIn(std::string_view pattern) {
    std::vector<std::string> fields;
    for (std::size_t at = 0; (at = pattern.find('{', at)) != std::string_view::npos; ++at)
        fields.emplace_back(pattern.substr(at + 1, pattern.find('}', at) - at - 1));
    return fields;
}

// Nothing when none of the fields has text. Blanks beside an empty field go with it. A field that is missing is null.
std::string Filled(std::string_view pattern, Values& values) {
    std::string text;
    bool hasText = false;
    while (!pattern.empty()) {
        const std::size_t open = std::min(pattern.find('{'), pattern.size());
        text += pattern.substr(0, open);
        if (open == pattern.size()) break;
        const std::size_t close = pattern.find('}', open);
        const std::string name(pattern.substr(open + 1, close - open - 1));
        pattern.remove_prefix(close + 1);
        const std::string value = ShownText(name, values[name]);
        hasText = hasText || !value.empty();
        text += value;
        if (value.empty() && pattern.starts_with(' ')) pattern.remove_prefix(1);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return hasText ? text : "";
}

}  // namespace

std::string RenderRows(const Rows& rows, bool withColour) {
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
            if (widths[i] > 0) pending += widths[i] - WidthOf(row[i]) + 2;
        }
        text += "\n";
    }
    return text;
}

std::string Wrapped(const std::string& text, std::size_t width) {
    std::vector<std::string> lines;
    for (const std::string_view line : Split(text, '\n')) {
        std::string rest(line);
        const std::size_t gap = rest.rfind("  ");
        const std::size_t column = gap == std::string::npos || gap + 2 > width / 2 ? 4 : gap + 2;
        for (std::size_t end = 0; (end = BytesWithin(rest, width)) < rest.size();) {
            const std::size_t blank = rest.rfind(' ', end);
            if (blank == std::string::npos || blank <= column) break;  // one long word
            lines.push_back(rest.substr(0, blank));
            rest = std::string(column, ' ') + rest.substr(blank + 1);
        }
        lines.push_back(rest);
    }
    return Joined(lines, "\n");
}

std::string RenderTable(const Json& document, std::string_view columns, bool withHeader, bool withColour) {
    std::vector<Values> records;
    FindRecords(document, FieldsIn(columns), records);
    std::vector<std::string> titles;
    Rows rows(records.size());
    for (const std::string_view column : Split(columns, '|')) {
        const std::size_t blank = column.rfind(' ', column.find('{'));
        titles.emplace_back(column.substr(0, blank == std::string_view::npos ? 0 : blank));
        for (std::size_t i = 0; i < rows.size(); ++i)
            rows[i].push_back(Filled(column.substr(blank + 1), records[i]));
    }
    const bool hasTitles = !Joined(titles, "").empty();
    if (withHeader && hasTitles && !rows.empty()) rows.insert(rows.begin(), titles);
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
        const bool isKnown = std::ranges::any_of(records, [&](auto& one) { return one.contains(field); });
        if (!isKnown && hasRecords && (records.empty() || !hasEmptyList)) return std::nullopt;
    }
    std::string text;
    for (Values& values : records)
        text += Joined(fields, "\t", [&](auto& field) { return PlainText(values[field]); }) + "\n";
    return text;
}

std::string FillTemplate(std::string_view text, const Json& record) {
    Values values;
    Collect(record, "", values);
    return Filled(text, values);
}

std::string HumanKib(long long kib) {
    return kib < 1024 ? Format("{} KiB", kib) : Format("{:.1f} MiB", static_cast<double>(kib) / 1024);
}

std::string HumanDuration(long long seconds) {
    constexpr long long kMinute = 60;
    constexpr long long kHour = 60 * kMinute;
    constexpr long long kDay = 24 * kHour;
    if (seconds >= kDay) return Format("{}d {}h", seconds / kDay, seconds % kDay / kHour);
    if (seconds >= kHour) return Format("{}h {}m", seconds / kHour, seconds % kHour / kMinute);
    if (seconds >= kMinute) return Format("{}m {}s", seconds / kMinute, seconds % kMinute);
    return Format("{}s", seconds);
}

std::string HumanRate(long long bitsPerSecond) {
    const auto rate = static_cast<double>(bitsPerSecond);
    if (rate < 1e3) return Format("{} bit/s", bitsPerSecond);
    if (rate < 1e6) return Format("{:.1f} kbit/s", rate / 1e3);
    if (rate < 1e9) return Format("{:.1f} Mbit/s", rate / 1e6);
    return Format("{:.1f} Gbit/s", rate / 1e9);
}

}  // namespace tessel::ctl
