// Word patterns: what follows an object and a verb, written as help shows it.
//
//   dev IF           a keyword and its values: in any order among the keywords. The word "dev" may be left out where
//                    a name can stand for nothing else
//   A/L  NAME        capitals are values, in this order (kinds: values.cpp); N:1-100 is a number within bounds
//   [table N]        may be left out
//   on|off|N         a choice; SWITCH=on|off gives it a name
//   IF...            once or more
//   [IF N]...        any number of these, together
#pragma once

#include <compare>
#include <variant>

#include "client/ctl/text.h"

namespace tessel::ctl {

// An address with the length of its network; a host's length is the whole address.
struct Network {
    int family = 0;                 // TESSEL_FAMILY_INET or _INET6; 0: none
    std::array<u8, 16> bytes = {};  // IPv4: the first four
    u32 length = 0;

    auto operator<=>(const Network&) const = default;  // NOLINT(modernize-use-nullptr): what it compares with
    [[nodiscard]] u32 FullLength() const {
        return family == TESSEL_FAMILY_INET6 ? 128 : 32;
    }
    [[nodiscard]] bool IsHost() const {
        return length == FullLength();
    }
};

struct Range {
    Network first;
    Network last;
    bool operator==(const Range&) const = default;
};

using Mac = std::array<u8, 6>;

// First and last ports.
using PortList = std::vector<std::pair<u32, u32>>;

// "192.168.1.20/24"; "192.168.1.1"; "192.168.1.10-192.168.1.20"; "02:00:00:00:00:01"; "90", "0x5a"; "90", "10m", "1h".
// Nothing for anything else.
[[nodiscard]] std::optional<Network> ParseNetwork(std::string_view text);
[[nodiscard]] std::optional<Network> ParseHost(std::string_view text);
[[nodiscard]] std::optional<Range> ParseRange(std::string_view text);
[[nodiscard]] std::optional<Mac> ParseMac(std::string_view text);
[[nodiscard]] std::optional<u32> ParseNumber(std::string_view text);
[[nodiscard]] std::optional<u32> ParseSeconds(std::string_view text);

// "80,443", "1000:2000", also with an end left out: ":1000".
[[nodiscard]] std::optional<PortList> ParsePorts(std::string_view text);

// "192.168.1.20/24"; without the length; empty for no family, and HostText for a zero address, too.
[[nodiscard]] std::string NetworkText(const Network& network);
[[nodiscard]] std::string HostText(const Network& network);
[[nodiscard]] std::string MacText(const Mac& mac);
// "inet", "inet6", "both".
[[nodiscard]] std::string FamilyName(int family);

// The network that contains an address: the bits beyond the length are 0. And its last address.
[[nodiscard]] Network Masked(Network network);
[[nodiscard]] Network LastOf(Network network);
// True when every address of `inner` is one of `outer`.
[[nodiscard]] bool Covers(const Network& outer, Network inner);

// Between values and records of include/tessel/. An IPv4 address is one even if the record leaves its family out.
[[nodiscard]] TNetGateway GatewayOf(const Network& network);
[[nodiscard]] TNetIpAddr AddressOf(const Network& network);
[[nodiscard]] Network NetworkOf(const TNetGateway& record, i32 length);
[[nodiscard]] Network HostOf(const TNetGateway& record);
[[nodiscard]] Network NetworkOf(const TNetIpAddr& record);

// What a word of a command stands for.
using Value = std::variant<std::string, u32, Network, Range, Mac>;

// A kind of word by its name in patterns (words.h): "IF", "A/L", "N:1-100" ... An unknown name is any word that is not
// empty.
struct ParsedValue {
    std::optional<Value> value;
    std::string problem;  // without a value: "\"192.168.1.300/24\" is no address with its length, such as ..."
};
[[nodiscard]] ParsedValue ParseValue(std::string_view kind, const std::string& word);

// Values worth offering in completion, as far as they can be listed.
[[nodiscard]] std::vector<std::string> KnownValues(std::string_view kind);

// A row for each kind that occurs in `pattern`, for help: "A/L", "address with its length, such as 192.168.1.20/24".
[[nodiscard]] std::vector<std::vector<std::string>> KindsIn(std::string_view pattern);

// One word of a pattern.
struct Token {
    std::string_view name;                  // the keyword itself, the value's kind, or the choice's name
    bool isKeyword = false;                 // typed as it stands
    std::vector<std::string_view> choices;  // for a choice: typed words and kinds
};

// Values by the keyword, kind (without its bounds) or choice that they belong to: "dev", "A/L", "LIST". Of a repeated
// group each word belongs to its own kind.
class Words {
  public:
    void Add(std::string_view key, std::string word, Value value) {
        entries_.push_back({std::string(key), std::move(word), std::move(value)});
    }
    [[nodiscard]] bool Has(std::string_view key) const {
        return Find(key) != nullptr;
    }
    // As typed; empty when it is missing.
    [[nodiscard]] std::string Text(std::string_view key) const {
        const Entry* entry = Find(key);
        return entry == nullptr ? "" : entry->word;
    }
    // The first one. It must be there, and of this type.
    template <typename T>
    [[nodiscard]] const T& Get(std::string_view key) const {
        return std::get<T>(Find(key)->value);
    }
    template <typename T>
    [[nodiscard]] T Get(std::string_view key, T otherwise) const {
        const Entry* entry = Find(key);
        return entry == nullptr ? otherwise : std::get<T>(entry->value);
    }
    // For choices between kinds: null when it is missing or of another type.
    template <typename T>
    [[nodiscard]] const T* If(std::string_view key) const {
        const Entry* entry = Find(key);
        return entry == nullptr ? nullptr : std::get_if<T>(&entry->value);
    }
    // Every one, in the order typed.
    template <typename T>
    [[nodiscard]] std::vector<T> All(std::string_view key) const {
        std::vector<T> all;
        for (const Entry& entry : entries_)
            if (entry.key == key) all.push_back(std::get<T>(entry.value));
        return all;
    }

  private:
    struct Entry {
        std::string key;
        std::string word;
        Value value;
    };
    [[nodiscard]] const Entry* Find(std::string_view key) const;

    std::vector<Entry> entries_;
};

struct Match {
    bool isComplete = false;
    Words words;
    std::size_t matchedWords = 0;
    std::string problem;          // when not complete: what is wrong or missing
    std::vector<Token> expected;  // what may come next
};

// Whether a word of a pattern, or one of its choices, stands for values; others are typed as they are.
[[nodiscard]] bool IsKind(std::string_view word);

// The pattern as people read it: choices without their names, numbers without their bounds.
[[nodiscard]] std::string UsageWords(std::string_view pattern);

[[nodiscard]] Match MatchWords(std::string_view pattern, const std::vector<std::string>& words);

}  // namespace tessel::ctl
