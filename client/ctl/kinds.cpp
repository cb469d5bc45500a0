// The kinds of words: how each is read, and what is said of one that is none.
#include "client/ctl/command.h"
#include "client/ctl/fields.h"
#include "client/ctl/kernel.h"

namespace tessel::ctl {

namespace {

template <typename T>
std::optional<Value> Held(std::optional<T> value) {
    return value ? std::optional<Value>(std::move(*value)) : std::nullopt;
}

std::optional<Value> OneWord(const std::string& word, std::size_t longest) {
    const bool isWord = !word.empty() && word.size() <= longest &&
                        std::none_of(word.begin(), word.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; });
    return isWord ? std::optional<Value>(word) : std::nullopt;
}

std::optional<Value> Name(const std::string& word) {
    return OneWord(word, TESSEL_NAME_SIZE - 1);
}

// iptables(8) takes 28 characters.
std::optional<Value> Chain(const std::string& word) {
    return word.starts_with('-') ? std::nullopt : OneWord(word, 28);
}

std::optional<Value> Anything(const std::string& word) {
    return word.empty() ? std::nullopt : std::optional<Value>(word);
}

// A gateway, a server, a peer: the zero address is none.
std::optional<Value> Host(const std::string& word) {
    const auto host = ParseHost(word);
    return host && !HostText(*host).empty() ? Held(host) : std::nullopt;
}

// The kernel's xt_multiport takes 15 numbers, two for a range. Neither end of a range is left out.
std::optional<Value> Ports(const std::string& word) {
    constexpr std::size_t kNumbersMax = 15;
    const auto ports = ParsePorts(word);
    const bool isClosed = !word.empty() && !word.starts_with(':') && !word.ends_with(':') &&
                          word.find(":,") == std::string::npos && word.find(",:") == std::string::npos;
    std::size_t numbers = 0;
    for (const auto& [first, last] : ports.value_or(PortList()))
        numbers += first == last ? 1 : 2;
    return ports && isClosed && numbers <= kNumbersMax ? std::optional<Value>(word) : std::nullopt;
}

std::optional<Value> Code(const std::string& word) {
    const Message* named = FindMessage(word);
    return named != nullptr ? std::optional<Value>(named->code) : Held(ParseNumber(word));
}

std::vector<std::string> CodeNames() {
    std::vector<std::string> names;
    for (const Message& message : Messages())
        names.emplace_back(message.name);
    return names;
}

std::vector<std::string> ObjectNames() {
    std::vector<std::string> names;
    for (const Object* object : Objects())
        names.emplace_back(object->name);
    return names;
}

struct WordKind {
    std::string_view name;
    std::string_view text;  // "no ... " and the example are said of a wrong word
    std::string_view example;
    std::optional<Value> (*parse)(const std::string& word);
    std::vector<std::string> (*known)() = [] { return std::vector<std::string>(); };
};

constexpr WordKind kWordKinds[] = {
    {"IF", "name of an interface (1 to 15 characters)", "eth0", &Name, &InterfaceNames},
    {"NAME", "name (1 to 15 characters)", "dropbear", &Name},
    {"CHAIN", "name of a chain (1 to 28 characters)", "whitelist", &Chain},
    {"N", "number", "100", [](const std::string& word) { return Held(ParseNumber(word)); }},
    {"S", "time in seconds", "90, 10m or 1h", [](const std::string& word) { return Held(ParseSeconds(word)); }},
    {"CODE", "code or name of a request", "addr_get", &Code, &CodeNames},
    {"OBJECT", "object", "addr", &Anything, &ObjectNames},
    {"A/L", "address with its length", "192.168.1.20/24",
     [](const std::string& word) { return Held(ParseNetwork(word)); }},
    {"A", "address", "192.168.1.1 or fe80::1", &Host},
    {"A-A", "range of addresses", "192.168.1.10-192.168.1.20",
     [](const std::string& word) { return Held(ParseRange(word)); }},
    {"M", "hardware address", "02:00:00:00:00:01", [](const std::string& word) { return Held(ParseMac(word)); }},
    {"PORTS", "list of at most 15 ports", "80,443 or 1000:2000", &Ports},
};

constexpr WordKind kAnyWord{"", "word", "", &Anything};

const WordKind& FindWordKind(std::string_view name) {
    const auto* const found = std::find_if(std::begin(kWordKinds), std::end(kWordKinds),
                                           [&](const WordKind& kind) { return kind.name == name; });
    return found == std::end(kWordKinds) ? kAnyWord : *found;
}

}  // namespace

ParsedValue ParseValue(std::string_view kind, const std::string& word) {
    const auto parts = Split(kind, ':');  // "N", "N:68-65536", "N:1-"
    const auto bounds = Split(parts.size() > 1 ? parts[1] : "0-", '-');
    const u32 least = ParseNumber(bounds[0]).value_or(0);
    const u32 most = ParseNumber(bounds[1]).value_or(~u32{0});
    const WordKind& found = FindWordKind(parts[0]);
    ParsedValue parsed{.value = found.parse(word), .problem = {}};
    const u32* number = parsed.value ? std::get_if<u32>(&*parsed.value) : nullptr;
    if (number != nullptr && (*number < least || *number > most)) parsed.value.reset();
    if (parsed.value) return parsed;
    if (word.empty()) {
        parsed.problem = "an empty word";
    } else if (parts.size() > 1) {
        parsed.problem = Format("\"{}\" is no {} from {} to {}", word, found.text, least, most);
    } else {
        parsed.problem = Format("\"{}\" is no {}, such as {}", word, found.text, found.example);
    }
    return parsed;
}

std::vector<std::string> KnownValues(std::string_view kind) {
    return FindWordKind(kind.substr(0, kind.find(':'))).known();
}

std::vector<std::pair<std::string, std::string>> KindsIn(std::string_view pattern) {
    std::string names(pattern);  // each between blanks, without the names of choices and the bounds of numbers
    std::replace_if(
        names.begin(), names.end(), [](char c) { return std::strchr("[]|.:", c) != nullptr; }, ' ');
    names = Format(" {} ", UsageWords(names));
    std::vector<std::pair<std::string, std::string>> lines;
    for (const WordKind& kind : kWordKinds) {
        if (names.find(Format(" {} ", kind.name)) != std::string::npos)
            lines.emplace_back(kind.name, Format("{}, such as {}", kind.text, kind.example));
    }
    return lines;
}

}  // namespace tessel::ctl
