// What people type behind "tesselctl", a word on each line: the values that words stand for, and the command that they
// mean.
#include "client/ctl/tesselctl.h"
#include "client/ctl/text.h"
#include "fuzz/fuzz.h"

namespace tessel::fuzz {

namespace {

using namespace ctl;

// Read, written and read again, it is the same.
template <typename Value, typename ToText>
void CheckRoundTrip(std::optional<Value> (*parse)(std::string_view), const std::string& word, ToText text) {
    const std::optional<Value> value = parse(word);
    if (!value) return;
    const std::string again = text(*value);
    Require(!again.empty() && parse(again) == value);
}

void CheckValues(const std::string& word) {
    CheckRoundTrip(&ParseNetwork, word, &NetworkText);
    CheckRoundTrip(&ParseMac, word, &MacText);
    CheckRoundTrip(&ParseNumber, word, [](u32 number) { return std::to_string(number); });
    if (const auto network = ParseNetwork(word)) {
        Require(network->length <= network->FullLength() && Covers(*network, Masked(*network)));
        Require(Covers(*network, LastOf(*network)));
    }
    if (const auto range = ParseRange(word)) Require(range->first.family == range->last.family);
    for (const auto& [first, last] : ParsePorts(word).value_or(PortList()))
        Require(first <= last && last <= 65535);
    (void)ParseSeconds(word);
}

}  // namespace

std::vector<std::string> Seeds() {
    std::vector<std::string> seeds = {"addr\nset\n192.168.1.20/24\nfd00::1/64\ndev\neth0"};
    for (const Object* object : Objects()) {
        for (const Command& command : object->commands) {
            std::string line(command.example);
            std::replace(line.begin(), line.end(), ' ', '\n');
            seeds.push_back(line);
        }
    }
    return seeds;
}

void TryInput(Input input) {
    std::vector<std::string> words;
    const std::string text = input.TakeText();
    for (const std::string_view word : Split(text, '\n'))
        words.emplace_back(word);
    for (const std::string& word : words)
        CheckValues(word);
    try {
        const ParsedCommand parsed = ParseWords(words);
        Require(parsed.object != nullptr && parsed.command != nullptr);
    } catch (const Failure&) {
        // It says what is wrong.
    }
    (void)Complete(words);
}

}  // namespace tessel::fuzz
