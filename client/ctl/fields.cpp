#include "client/ctl/fields.h"

namespace tessel::ctl {

namespace {

using ByteSpan = std::span<const u8>;

template <typename Value>
Value Read(ByteSpan bytes, std::size_t offset) {
    Value value;
    memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

u64 NumberAt(ByteSpan bytes, std::size_t offset, std::size_t width) {
    if (width == sizeof(u16)) return Read<u16>(bytes, offset);
    return width == sizeof(u64) ? Read<u64>(bytes, offset) : Read<u32>(bytes, offset);
}

// A number's word, or the number where it has none.
template <typename Number>
Json WordOf(std::span<const Word> words, Number number) {
    const auto found = std::ranges::find(words, static_cast<u32>(number), &Word::number);
    return found == words.end() ? Json(number) : NullIfEmpty(std::string(found->text));
}

std::string TextAt(ByteSpan bytes, std::size_t offset, std::size_t limit) {
    const ByteSpan text = bytes.subspan(offset, std::min(limit, bytes.size() - offset));
    return {text.begin(), std::find(text.begin(), text.end(), u8{0})};
}

Json FilterValue(TNetIpFilter filter, Kind kind) {
    filter.tEnd.wSinFamily = filter.tStart.wSinFamily;
    const std::string last = HostText(HostOf(filter.tEnd));
    if (kind == Kind::kFilterRange)
        return NullIfEmpty(last.empty() ? "" : HostText(HostOf(filter.tStart)) + "-" + last);
    return NullIfEmpty(last.empty() ? NetworkText(NetworkOf(filter.tStart, static_cast<i32>(filter.dwPrefixLen))) : "");
}

Json ValueAt(const Field& field, Kind kind, ByteSpan bytes, std::size_t offset, std::size_t position);

Json DecodeFields(std::span<const Field> fields, ByteSpan bytes, std::size_t position) {
    Json values = Json::object();
    for (const Field& field : fields)
        values[std::string(field.name)] = ValueAt(field, field.kind, bytes, field.offset, position);
    return values;
}

// A list of records keeps its places when it has no count: those whose first value is missing are none.
Json ListValue(const Field& field, ByteSpan bytes) {
    Json list = Json::array();
    const bool isCounted = field.other != kNoCount;
    const std::size_t count =
        isCounted ? std::min<std::size_t>(Read<u32>(bytes, field.other), field.elements) : field.elements;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t offset = field.offset + i * field.bytes;
        Json element = field.elementFields.empty()
                           ? ValueAt(field, field.elementKind, bytes, offset, i)
                           : DecodeFields(field.elementFields, bytes.subspan(offset, field.bytes), i);
        if (isCounted || !element.front().is_null()) list.push_back(std::move(element));
    }
    return list;
}

Json ValueAt(const Field& field, Kind kind, ByteSpan bytes, std::size_t offset, std::size_t position) {
    switch (kind) {
        case Kind::kUnsigned:
            return WordOf(field.words, NumberAt(bytes, offset, field.bytes));
        case Kind::kSigned:
            return WordOf(field.words, Read<i32>(bytes, offset));
        case Kind::kText:
            return NullIfEmpty(TextAt(bytes, offset, field.bytes));
        case Kind::kTail:
            return NullIfEmpty(TextAt(bytes, offset, bytes.size()));
        case Kind::kFlag:
            return NumberAt(bytes, offset, field.bytes) == field.other;
        case Kind::kAddress:
            return NullIfEmpty(HostText(HostOf(Read<TNetGateway>(bytes, offset))));
        case Kind::kNetwork:
            return NetworkText(NetworkOf(Read<TNetGateway>(bytes, offset), Read<i32>(bytes, field.other)));
        case Kind::kFilterNetwork:
        case Kind::kFilterRange:
            return FilterValue(Read<TNetIpFilter>(bytes, offset), kind);
        case Kind::kPrefixed:
            return NetworkText(NetworkOf(Read<TNetIpAddr>(bytes, offset)));
        case Kind::kIpv4:
            return Format("{}.{}.{}.{}", bytes[offset], bytes[offset + 1], bytes[offset + 2], bytes[offset + 3]);
        case Kind::kMac:
            return MacText(Read<Mac>(bytes, offset));
        case Kind::kList:
            return ListValue(field, bytes);
        case Kind::kPosition:
            return WordOf(field.words, position);
    }
    return nullptr;
}

// For a record within a list, only the values.
std::string ValueText(const Json& value) {
    if (value.is_null()) return "";
    if (!value.is_structured()) return value.is_string() ? value.get<std::string>() : value.dump();
    const char* const between = value.is_array() && !value.empty() && value.front().is_object() ? ", " : " ";
    std::string text;
    for (const Json& part : value) {
        const std::string word = ValueText(part);
        if (!word.empty()) text += (text.empty() ? "" : between) + word;
    }
    return text;
}

}  // namespace

Json Decode(const Record& record, std::span<const u8> payload) {
    std::vector<u8> bytes(payload.begin(), payload.end());
    bytes.resize(std::max(record.bytes, payload.size()));
    return DecodeFields(record.fields, bytes, 0);
}

std::string DescriptionText(const Json& description) {
    std::string text;
    for (const auto& [key, value] : description.items()) {
        const std::string word = ValueText(value);
        if (!word.empty()) text += Format("{}{} {}", text.empty() ? "" : "   ", key, word);
    }
    return text;
}

std::string TypeText(const Field& field) {
    // By kind. For numbers and texts the size follows.
    constexpr std::string_view kNames[] = {"u",       "i",       "char",      "text",      "u",
                                           "address", "address", "IP filter", "IP filter", "address with length",
                                           "u",       "u8[6]",   "",          "record"};
    static_assert(std::size(kNames) == static_cast<std::size_t>(Kind::kPosition) + 1);
    const std::string_view name = kNames[static_cast<std::size_t>(field.kind)];
    if (name == "u" || name == "i") return Format("{}{}", name, field.bytes * 8);
    if (field.kind == Kind::kText) return Format("{}[{}]", name, field.bytes);
    if (field.kind != Kind::kList) return std::string(name);
    Field element = field;
    element.kind = field.elementKind;
    return Format("{} x {}", field.elements, field.elementFields.empty() ? TypeText(element) : "record");
}

void AddFields(const Record& record, std::string_view before, Rows& rows) {
    std::vector<Field> fields(record.fields.begin(), record.fields.end());
    std::stable_sort(fields.begin(), fields.end(), [](const Field& a, const Field& b) { return a.offset < b.offset; });
    for (const Field& field : fields) {
        std::string words;
        for (const Word& word : field.words)
            words += Format("{}{} {}", words.empty() ? ": " : ", ", word.number, word.text.empty() ? "-" : word.text);
        rows.push_back({"", Format("{}{:>4}  {:<10} {}{}", before, field.offset, TypeText(field), field.name, words)});
        if (!field.elementFields.empty()) AddFields({{}, 0, field.elementFields}, std::string(before) + "      ", rows);
    }
}

}  // namespace tessel::ctl
