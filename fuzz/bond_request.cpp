// The start request of the bond. The first byte chooses which of the tools that it runs fails, the others are the
// payload.
#include "core/exec_note.h"
#include "fuzz/fuzz.h"
#include "services/bond.h"
#include "tessel/command.h"
#include "tessel/ipc.h"

tessel::fuzz::Handler ApidBondStart;

namespace tessel::fuzz {

namespace {

// The status of the handler's reply; 1 when it does not reply.
i32 Start(const std::vector<u8>& payload) {
    const std::string answer = AnswerOf(&ApidBondStart, TESSEL_CMD_BOND_START, payload, payload.size());
    i32 status = 1;
    Require(answer.empty() || answer.size() == sizeof(IpcMsgHead) + sizeof(status));
    if (!answer.empty()) memcpy(&status, &answer[sizeof(IpcMsgHead)], sizeof(status));
    return status;
}

bool IsExpected(const std::string& line) {
    constexpr const char* kTools[] = {"ifconfig ", "ifenslave ", "ip addr flush dev ", "sh -c echo \"active-backup "};
    return std::any_of(std::begin(kTools), std::end(kTools), [&](const char* tool) { return line.starts_with(tool); });
}

}  // namespace

std::vector<std::string> Seeds() {
    const auto text = [](const std::string& name) { return BytesOf(static_cast<u32>(name.size() + 1)) + name + '\0'; };
    const std::string parts = BytesOf(2U) + text("eth0") + text("eth1") + text("eth0");
    const std::string path = "/p\0"s;
    const TNetBondStartHead head{static_cast<i32>(sizeof(TNetBondStartHead) + path.size() + parts.size()), 1, 3};
    return {std::string(1, '\0') + BytesOf(head) + path + parts, '\3' + BytesOf(head) + path + parts};
}

void TryInput(Input input) {
    const u8 failing = input.Take<u8>();
    int toolsLeft = failing;  // until one fails
    AnswerTools([&](const std::string&) { return ToolAnswer{"", --toolsLeft == 0 ? 1 : 0}; });
    // With the length that it says, which no mutation hits by itself, for every other number.
    std::vector<u8> payload = input.TakeBytes(TESSEL_PAYLOAD_MAX);
    const i32 length = static_cast<i32>(payload.size());
    if (failing % 2 == 0 && payload.size() >= sizeof(length)) memcpy(payload.data(), &length, sizeof(length));
    const i32 status = Start(payload);
    const std::vector<std::string> lines = TakeToolLines();
    for (const std::string& line : lines)
        Require(IsExpected(line));
    Require(status != 1 || lines.empty());
    Require((status == 0) == (g_dwBondStatus == 1));
    Require(memchr(g_achNicBuf, '\0', sizeof(g_achNicBuf)) != nullptr);
    Require(g_tBondParam.dwIfaceNum <= TESSEL_BOND_INTERFACES_MAX);
    AnswerTools({});
    Require(status != 0 || Start(payload) == -1);
    Require(BondStop() == 0 && g_dwBondStatus == 0);
    (void)TakeToolLines();
}

}  // namespace tessel::fuzz
