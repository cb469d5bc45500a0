#include <fmt/format.h>

#include <cctype>
#include <fstream>
#include <iostream>
#include <iterator>

#include "client/ctl/handlers.h"
#include "client/ctl/messages.h"
#include "client/ctl/trace.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

using ByteString = std::vector<u8>;

std::optional<ByteString> ParseHex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (isxdigit(static_cast<unsigned char>(c)) == 0) return std::nullopt;
        digits += c;
    }
    if (digits.size() % 2 != 0) return std::nullopt;
    ByteString bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<u8>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

ByteString ReadAll(std::istream& stream) {
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::variant<ByteString, Failure> ReadData(const std::string& asked, const std::string& word) {
    if (word == "-") return ReadAll(std::cin);
    if (word.starts_with('@')) {
        std::ifstream file(word.substr(1), std::ios::binary);
        if (!file) return Refused(asked, "cannot read " + word.substr(1));
        return ReadAll(file);
    }
    auto bytes = ParseHex(word);
    if (!bytes) return Refused(asked, "data are hexadecimal digits in pairs, @FILE or -");
    return std::move(*bytes);
}

Outcome Send(const std::string& asked, u32 code, const ByteString& request, std::size_t replyBytes) {
    ByteString reply(replyBytes);
    const int error = tessel_raw(code, request.empty() ? nullptr : request.data(), request.size(),
                                 reply.empty() ? nullptr : reply.data(), reply.size());
    if (error != TESSEL_OK) return CallFailed(asked, error);
    const Message* message = FindMessage(code);
    Outcome outcome;
    outcome.document = {{"code", fmt::format("0x{:X}", code)},
                        {"name", message == nullptr ? ordered_json() : ordered_json(message->name)},
                        {"size", reply.size()},
                        {"reply", fmt::format("{:02x}", fmt::join(reply, ""))},
                        {"decoded", message == nullptr ? ordered_json() : Decode(message->reply, reply)}};
    outcome.table.rows.push_back({{fmt::format("{:02x}", fmt::join(reply, ""))}});
    if (message != nullptr) outcome.notes.push_back(DescriptionText(outcome.document["decoded"]));
    return outcome;
}

}  // namespace

Outcome RawRequest(const Invocation& invocation) {
    const std::string codeWord = invocation.words.Get("CODE");
    const std::string asked = "raw " + codeWord;
    const Message* named = FindMessage(codeWord);
    const u32 code = named != nullptr ? named->code : ParseNumber(codeWord).value_or(0);
    const Message* message = FindMessage(code);

    ByteString request;
    if (const auto word = invocation.words.Find("DATA")) {
        auto data = ReadData(asked, *word);
        if (auto* failure = std::get_if<Failure>(&data)) return std::move(*failure);
        request = std::get<ByteString>(std::move(data));
    }
    if (request.size() > TESSEL_PAYLOAD_MAX) {
        return Refused(asked, fmt::format("{} bytes are more than {}", request.size(), +TESSEL_PAYLOAD_MAX));
    }
    if (invocation.options.replyBytes) {
        return Send(asked, code, request, static_cast<std::size_t>(*invocation.options.replyBytes));
    }
    if (message == nullptr) return Refused(asked, "how long is the reply? (--reply N; 0 waits for none)");
    return Send(asked, code, request, message->reply.bytes);
}

}  // namespace tessel::ctl
