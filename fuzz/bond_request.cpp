// The start request of the bond. The first byte chooses which of the tools that it runs fails, the others are the
// payload.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/exec_note.h"
#include "core/unique_fd.h"
#include "fuzz/fuzz.h"
#include "services/bond.h"
#include "tessel/command.h"
#include "tessel/ipc.h"

i32 ApidBondStart(int fd, u32 type, const void* payload, i32 size);

namespace {

using tessel::fuzz::Require;

// The status of the handler's reply; 1 when it does not reply.
i32 Start(const std::vector<std::uint8_t>& payload) {
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0);
    const tessel::UniqueFd client(ends[0]);
    const tessel::UniqueFd server(ends[1]);
    const i32 result =
        ApidBondStart(server.Get(), TESSEL_CMD_BOND_START, payload.data(), static_cast<i32>(payload.size()));
    struct {
        IpcMsgHead head;
        TNetStatusReply status;
    } reply{};
    const ssize_t count = read(client.Get(), &reply, sizeof(reply));
    Require((result == 0) == (count == sizeof(reply)));
    return result == 0 ? reply.status.nResult : 1;
}

bool IsExpected(const std::string& line) {
    for (const char* tool : {"ifconfig ", "ifenslave ", "ip addr flush dev ", "sh -c echo \"active-backup "}) {
        if (line.starts_with(tool)) return true;
    }
    return false;
}

}  // namespace

std::vector<std::string> tessel::fuzz::Seeds() {
    const auto text = [](const std::string& name) { return BytesOf(static_cast<u32>(name.size() + 1)) + name + '\0'; };
    const std::string parts = BytesOf(2U) + text("eth0") + text("eth1") + text("eth0");
    const std::string path("/p\0", 3);
    const TNetBondStartHead head{static_cast<i32>(sizeof(TNetBondStartHead) + path.size() + parts.size()), 1, 3};
    return {std::string(1, '\0') + BytesOf(head) + path + parts, '\3' + BytesOf(head) + path + parts};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > TESSEL_PAYLOAD_MAX) return 0;
    int toolsLeft = data[0];  // until one fails
    tessel::AnswerTools([&](const std::string&) { return tessel::ToolAnswer{"", --toolsLeft == 0 ? 1 : 0}; });
    // With the length that it says, which no mutation hits by itself, for every other number.
    std::vector<std::uint8_t> payload(data + 1, data + size);
    const i32 length = static_cast<i32>(payload.size());
    if (data[0] % 2 == 0 && payload.size() >= sizeof(length)) memcpy(payload.data(), &length, sizeof(length));
    payload.shrink_to_fit();

    const i32 status = Start(payload);
    const std::vector<std::string> lines = tessel::TakeToolLines();
    for (const std::string& line : lines)
        Require(IsExpected(line));
    Require(status != 1 || lines.empty());
    Require((status == 0) == (g_dwBondStatus == 1));
    Require(memchr(g_achNicBuf, '\0', sizeof(g_achNicBuf)) != nullptr);
    Require(g_tBondParam.dwIfaceNum <= TESSEL_BOND_INTERFACES_MAX);
    tessel::AnswerTools({});
    Require(status != 0 || Start(payload) == -1);
    Require(BondStop() == 0 && g_dwBondStatus == 0);
    (void)tessel::TakeToolLines();
    return 0;
}
