// Writes the part of the Python module that follows from the tables of fields and from headers: constants, records,
// messages, calls. It is the same for every processor, as the records are.
//
//     generate LIBTESSEL_H HEADER... >_generated.py
#include <map>
#include <regex>
#include <set>

#include "client/ctl/fields.h"
#include "client/ctl/files.h"
#include "client/ctl/records.h"

namespace tessel::ctl {

using namespace records;

namespace {

// A part of a message that calls take or give, and fields of it that the tool does not show.
struct Part {
    std::string_view name;
    std::size_t bytes;
    Record message;
    std::size_t offset;
    std::vector<Field> more = {};
};
#define PART(part, message, record, member) #part, sizeof(part), message, offsetof(record, member)
#define MORE(name, kind, record, member) \
    { name, Kind::kind, offsetof(record, member), sizeof(record::member) }

const Part kParts[] = {
    {PART(TNetIpAddr, kAddrChange, TNetIpaddrChangeReq, tIp),
     {MORE("scope", kUnsigned, TNetIpAddr, dwScope), MORE("tentative", kUnsigned, TNetIpAddr, bTentative),
      MORE("dynamic", kUnsigned, TNetIpAddr, bDynamic)}},
    {"MacAddress", sizeof(TNetMacaddrGetReply::abyMac), kMac, offsetof(TNetMacaddrGetReply, abyMac)},
    {PART(TNetGateway, kGateway, TNetGatewayGetReply, tGateway)},
    {PART(TNetIfaceIp, kAddrList, TNetIpaddrGetReply, tIfaceIp)},
    {PART(ipaddr_show_info, kAddrInfo, TNetIpaddrShowReply, tInfo)},
    {PART(TNetAllRouteInfo, kRoutes, TNetRouteGetAllReply, tRoutes)},
    {PART(TNetIpFilter, kIpFilter, TNetIpFilterReq, tFilter)},
    {PART(TNetPortFilter, kPort, TNetPortFilterReq, tFilter)},
    {PART(TNetDhcpsConf, kDhcpsStart, TNetDhcpsStartReq, tConf)},
    {PART(TNetPppoeConf, kPppoeStart, TNetPppoeStartReq, tConf), {MORE("password", kText, TNetPppoeConf, achPassword)}},
};

std::vector<Field> FieldsOf(const Part& part) {
    std::vector<Field> fields;
    for (Field field : part.message.fields) {
        if (field.offset < part.offset || field.offset >= part.offset + part.bytes) continue;
        field.offset -= part.offset;
        if (field.kind == Kind::kList) field.other -= part.offset;
        fields.push_back(field);
    }
    fields.insert(fields.end(), part.more.begin(), part.more.end());
    return fields;
}

// What lists of records have.
constexpr Record kElements[] = {kShownAddress, kPriority, kRoute, kBandwidth};

std::string_view ElementOf(const Field& list) {
    if (list.elementKind == Kind::kPrefixed) return "TNetIpAddr";
    if (list.elementKind == Kind::kAddress) return "TNetGateway";
    const auto isElement = [&](const Record& record) { return record.fields.data() == list.elementFields.data(); };
    return std::ranges::find_if(kElements, isElement)->name;
}

// "Network(16, 20, 56)". Empty for a view of other fields.
std::string FieldText(const Field& field) {
    const auto plain = [&](std::string_view kind) { return Format("{}({}, {})", kind, field.offset, field.bytes); };
    // An address and what stands elsewhere.
    const auto paired = [&](std::string_view kind, std::size_t address, std::size_t other) {
        return Format("{}({}, {}, {})", kind, field.offset + address, sizeof(TNetGateway), field.offset + other);
    };
    switch (field.kind) {
        case Kind::kFlag:
            return field.other == 1 ? plain("Number") : "";
        case Kind::kUnsigned:  // a rate is below 0 when its counter began anew
            return plain(field.bytes == sizeof(u64) ? "Signed" : "Number");
        case Kind::kSigned:
            return plain("Signed");
        case Kind::kText:
            return plain("Text");
        case Kind::kTail:
            return Format("Text({}, None)", field.offset);
        case Kind::kAddress:
            return plain("Address");
        case Kind::kNetwork:
            return paired("Network", 0, field.other - field.offset);
        case Kind::kPrefixed:
            return paired("Network", offsetof(TNetIpAddr, wSinFamily), offsetof(TNetIpAddr, dwPrefixLen));
        case Kind::kFilterNetwork:
            return paired("Network", offsetof(TNetIpFilter, tStart), offsetof(TNetIpFilter, dwPrefixLen));
        case Kind::kFilterRange:
            return paired("Range", offsetof(TNetIpFilter, tStart), offsetof(TNetIpFilter, tEnd));
        case Kind::kIpv4:
            return plain("Ipv4");
        case Kind::kMac:
            return plain("Mac");
        case Kind::kList:
            return Format("List({}, {}, {}, {})", field.offset, ElementOf(field), field.elements,
                          field.other == kNoCount ? "None" : std::to_string(field.other));
        case Kind::kPosition:
            return "";
    }
    return "";
}

std::set<std::string> writtenRecords = {std::string(kNothing.name)};

// The class of a record; nothing when it was written before, as some are of several messages.
std::string RecordText(const Record& record) {
    if (!writtenRecords.emplace(record.name).second) return "";
    std::vector<Field> fields;
    std::ranges::copy_if(record.fields, std::back_inserter(fields),
                         [](const Field& f) { return !FieldText(f).empty(); });
    Rows rows;
    AddFields({record.name, record.bytes, fields}, "", rows);
    std::string text = Format("\n\nclass {}(Record):\n    \"\"\"{} bytes\n\n", record.name, record.bytes);
    for (const auto& row : rows)
        text += Format("    {}\n", row.back());
    text += Format("    \"\"\"\n\n    __slots__ = ()\n    SIZE = {}\n", record.bytes);
    for (const Field& field : fields)
        text += Format("    {}{} = {}\n", field.name, field.name == "from" ? "_" : "", FieldText(field));
    return text;
}

std::string_view NameOf(const Record& record) {
    return record.bytes == 0 ? "None" : record.name;
}

std::string RecordsText() {
    std::string text;
    for (const Record& record : kElements)
        text += RecordText(record);
    for (const Part& part : kParts)
        text += RecordText({part.name, part.bytes, FieldsOf(part)});
    std::string tables = "\n\n# By their code: name, request, reply.\nMESSAGES = {\n";
    for (const Message& message : Messages()) {
        text += RecordText(message.request) + RecordText(message.reply);
        tables += Format("    0x{:X}: ('{}', {}, {}),\n", message.code, message.name, NameOf(message.request),
                         NameOf(message.reply));
    }
    tables += "}\n\n# What events of a kind carry.\nEVENTS = {\n";
    for (int kind = TESSEL_EVENT_UNKNOWN + 1; const Record* const record = FindEventRecord(kind); ++kind) {
        text += RecordText(*record);
        tables += Format("    {}: {},\n", kind, NameOf(*record));
    }
    return text + tables + "}\n";
}

// The constants of a header, without their prefix: enumerators, and names of sockets.
std::string ConstantsText(const std::string& header) {
    static const std::regex kConstant(R"re((?:\n    |[{,] )TESSEL_(\w+)(?: = (-?\w+)|,?(?=\n)))re"
                                      R"re(|#define TESSEL_(\w+) +(".*?"))re");
    std::string text;
    long value = 0;
    for (std::sregex_iterator it(header.begin(), header.end(), kConstant), end; it != end; ++it) {
        const std::smatch& match = *it;
        value = match[2].matched ? std::stol(match[2], nullptr, 0) : value + 1;
        text += Format("{} = {}\n", match[match[4].matched ? 3 : 1].str(),
                       match[4].matched ? match[4].str() : std::to_string(value));
    }
    return text;
}

// Arguments that their type alone does not say how to hand over.
const std::map<std::string, std::string_view> kOddArguments = {
    {"const char* const* interfaces", "(c_char_p * len(interfaces))(*(text(name).value for name in interfaces))"},
    {"size_t count", "c_size_t(len(interfaces))"},
    {"uint32_t target", "c_uint32.from_buffer(TNetBroadcastArpReq(address=target).data)"},
};

// The function for a call of "DECLARATION, DECLARATION". What the call writes is what the function returns.
std::string CallText(const std::string& name, const std::string& declarations, const std::string& comment) {
    static const std::regex kDeclaration(R"((const )?(\w+)(\*?).* (\w+)(\[\w*\])?)");
    std::vector<std::string> parameters;
    std::vector<std::string> arguments;
    std::vector<std::string> results;
    std::string made;
    for (const std::string_view part : Split(declarations, ',')) {
        const std::string declaration = Joined(WordsIn(std::string(part)), " ");
        std::smatch match;
        if (!std::regex_match(declaration, match, kDeclaration)) continue;  // "void"
        const std::string parameter = match[4];
        std::string type = match[2] == "uint8_t" ? "MacAddress" : match[2].str();
        const bool isNumber = type.starts_with("int") || type.starts_with("uint");
        if (isNumber) type = "c_" + type.substr(0, type.find("_t"));
        const bool isRecord = writtenRecords.contains(type);
        const bool isPointer = match[3].length() > 0 || match[5].matched;
        const auto odd = kOddArguments.find(declaration);
        if (odd == kOddArguments.end() && !isNumber && !isRecord && type != "char")
            throw Refused(name, Format("\"{}\" is of a type that is not known", declaration));
        if (isPointer && !match[1].matched) {
            made += Format("    {} = {}()\n", parameter, type);
            arguments.push_back(isRecord ? parameter : Format("byref({})", parameter));
            results.push_back(parameter + ".value");
            continue;
        }
        if (type != "size_t") parameters.push_back(parameter);
        const std::string how = isRecord ? type + ".of" : isNumber ? type : "text";
        arguments.push_back(odd != kOddArguments.end() ? std::string(odd->second) : Format("{}({})", how, parameter));
    }
    std::string text = Format("\n\ndef {}({}):\n    \"\"\"{}\"\"\"\n{}", name, Joined(parameters, ", "), comment, made);
    if (name.starts_with("daemon_")) return text + Format("    return library.tessel_{}()\n", name);
    arguments.insert(arguments.begin(), "'" + name + "'");
    text += Format("    call({})\n", Joined(arguments, ", "));
    return results.empty() ? text : text + Format("    return {}\n", Joined(results, ", "));
}

// The functions for libtessel's calls. A comment is that of all calls that follow it directly.
std::string CallsText(const std::string& header) {
    static const std::regex kCall(R"re((?:/\* ((?:[^*]|\*(?!/))*) \*/\n)?)re"
                                  R"re(TESSEL_API int tessel_(?!event_|listener_|raw\()(\w+)\(([^)]*)\);)re");
    std::string text;
    std::string comment;
    for (std::sregex_iterator it(header.begin(), header.end(), kCall), end; it != end; ++it) {
        const std::smatch& match = *it;
        if (match[1].matched) {
            comment = std::regex_replace(match[1].str(), std::regex("\n \\*"), "\n   ");
            comment = std::regex_replace(comment, std::regex("tessel_(?!event_|listener_)(?=\\w+\\()|TESSEL_"), "");
            comment = std::regex_replace(comment, std::regex("\\bnull\\b"), "None");
        }
        text += CallText(match[2], match[3], comment);
    }
    return text;
}

}  // namespace

}  // namespace tessel::ctl

int main(int argc, char** argv) try {
    using namespace tessel::ctl;
    std::string text = R"py("""Generated from libtessel.h and the tables of fields."""

from ctypes import byref, c_char_p, c_int, c_int32, c_size_t, c_uint32

from ._base import Address, Ipv4, List, Mac, Network, Number, Range, Record, Signed, Text, call, library, text

)py";
    for (int i = 1; i < argc; ++i)
        text += ConstantsText(ReadWholeFile("generate", argv[i]));
    text += RecordsText();
    text += CallsText(ReadWholeFile("generate", argv[1]));
    text += R"py(

__all__ = [name for name, thing in list(globals().items())
           if name.isupper() or getattr(thing, "__module__", None) == __name__]
)py";
    return std::fputs(text.c_str(), stdout) < 0 ? 1 : 0;
} catch (const tessel::ctl::Failure& failure) {
    (void)std::fprintf(stderr, "%s\n", failure.message.c_str());
    return 1;
}
