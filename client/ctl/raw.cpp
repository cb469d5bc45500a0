// Any request by its bytes.
#include "client/ctl/fields.h"
#include "client/ctl/files.h"

namespace tessel::ctl {

namespace {

std::vector<u8> DataOf(const std::string& asked, const std::string& word) {
    std::vector<u8> bytes;
    if (word == "-" || word.starts_with('@')) {
        const std::string text = ReadWholeFile(asked, word == "-" ? word : word.substr(1));
        return {text.begin(), text.end()};
    }
    for (std::size_t i = 0; i < word.size(); i += 2) {
        const std::string pair = word.substr(i, 2);
        const auto byte = ParseNumber("0x" + pair);
        if (pair.size() != 2 || !byte) throw Refused(asked, "data are hexadecimal digits in pairs, @FILE or -");
        bytes.push_back(static_cast<u8>(*byte));
    }
    return bytes;
}

Outcome Send(const Invocation& invocation) {
    const u32 code = invocation.words.Get<u32>("CODE");
    const Message* const message = FindMessage(code);
    const auto request = DataOf(invocation.asked, invocation.words.Text("DATA"));
    if (request.size() > TESSEL_PAYLOAD_MAX)
        throw Refused(invocation.asked, Format("{} bytes are more than {}", request.size(), +TESSEL_PAYLOAD_MAX));
    const auto& wanted = invocation.options.replyBytes;
    if (!wanted && message == nullptr)
        throw Refused(invocation.asked, "how long is the reply? (--reply N; 0 waits for none)");
    std::vector<u8> reply(wanted ? static_cast<std::size_t>(*wanted) : message->reply.bytes);
    Require(invocation.asked, tessel_raw(code, request.empty() ? nullptr : request.data(), request.size(),
                                         reply.empty() ? nullptr : reply.data(), reply.size()));
    std::string hex;
    for (const u8 byte : reply)
        hex += Format("{:02x}", byte);
    const Json decoded = message == nullptr ? Json() : Decode(message->reply, reply);
    Outcome outcome{.document = {{"code", Format("0x{:X}", code)},
                                 {"name", message == nullptr ? Json() : Json(message->name)},
                                 {"size", reply.size()},
                                 {"reply", hex},
                                 {"decoded", decoded}},
                    .text = hex + "\n"};
    if (message != nullptr) outcome.notes = {DescriptionText(decoded)};
    return outcome;
}

constexpr Command kRawCommands[] = {
    Row("", "CODE [DATA]", &Send, "send any request, show the reply", "raw mtu_get 65746830000000000000000000000000")
        .More("CODE: a number or a name (help protocol). DATA: hex digits, @FILE or -. A number may need --reply."),
};

}  // namespace

extern const Object kRaw = {.name = "raw", .summary = "any request, byte for byte", .commands = kRawCommands};

}  // namespace tessel::ctl
