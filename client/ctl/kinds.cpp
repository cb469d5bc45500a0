// The kinds of words: how each is read, and what is said of one that is none.
#include "client/ctl/command.h"
#include "client/ctl/fields.h"
#include "client/ctl/kernel.h"

namespace tessel::ctl {

namespace {

template <auto kParse>
std::optional<Value> Parsed(const std::string& word) {
    return kParse(word);
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
    return host && !HostText(*host).empty() ? std::optional<Value>(*host) : std::nullopt;
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
    return named != nullptr ? std::optional<Value>(named->code) : ParseNumber(word);
}

template <typename List, typename Element>
std::vector<std::string> NamesOf(const List& list, std::string_view Element::*name) {
    std::vector<std::string> names;
    for (const auto& element : list)
        names.emplace_back(std::invoke(name, element));
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
    {"N", "number", "100", &Parsed<ParseNumber>},
    {"S", "time in seconds", "90, 10m or 1h", &Parsed<ParseSeconds>},
    {"CODE", "code or name of a request", "addr_get", &Code, [] { return NamesOf(Messages(), &Message::name); }},
    {"OBJECT", "object", "addr", &Anything, [] { return NamesOf(Objects(), &Object::name); }},
    {"A/L", "address with its length", "192.168.1.20/24", &Parsed<ParseNetwork>},
    {"A", "address", "192.168.1.1 or fe80::1", &Host},
    {"A-A", "range of addresses", "192.168.1.10-192.168.1.20", &Parsed<ParseRange>},
    {"M", "hardware address", "02:00:00:00:00:01", &Parsed<ParseMac>},
    {"PORTS", "list of at most 15 ports", "80,443 or 1000:2000", &Ports},
};

constexpr WordKind kAnyWord{"", "word", "", &Anything};

const WordKind& FindWordKind(std::string_view name) {
    const auto* const found = std::ranges::find(kWordKinds, name, &WordKind::name);
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
    parsed.problem = parts.size() > 1 ? Format("\"{}\" is no {} from {} to {}", word, found.text, least, most)
                                      : Format("\"{}\" is no {}, such as {}", word, found.text, found.example);
    if (word.empty()) parsed.problem = "an empty word";
    return parsed;
}

std::vector<std::string> KnownValues(std::string_view kind) {
    return FindWordKind(kind.substr(0, kind.find(':'))).known();
}

std::vector<std::vector<std::string>> KindsIn(std::string_view pattern) {
    std::string names(pattern);  // each between blanks, without the names of choices and the bounds of numbers
    std::ranges::replace_if(
        names, [](char c) { return std::strchr("[]|.:", c) != nullptr; }, ' ');
    names = Format(" {} ", UsageWords(names));
    std::vector<std::vector<std::string>> rows;
    for (const WordKind& kind : kWordKinds) {
        if (names.find(Format(" {} ", kind.name)) != std::string::npos)
            rows.push_back({std::string(kind.name), Format("{}, such as {}", kind.text, kind.example)});
    }
    return rows;
}

}  // namespace tessel::ctl
