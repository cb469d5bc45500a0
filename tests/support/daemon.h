// A running daemon, the tools it finds, and raw requests to it.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "core/types.h"
#include "core/unique_fd.h"
#include "tessel/gateway.h"
#include "tessel/ipc.h"
#include "tests/support/files.h"

namespace tessel::test {

// The wire bytes of a record.
template <typename Record>
std::string_view Bytes(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

inline std::string Number(u32 value) {
    return std::string(Bytes(value));
}

// With zeros behind it, or cut: so many bytes.
inline std::string Padded(std::string text, std::size_t bytes) {
    text.resize(bytes);
    return text;
}

// An address as requests hold it. Any text that is none has the family 7, which nobody knows.
inline TNetGateway Address(const char* text) {
    TNetGateway address{};
    address.wSinFamily = strchr(text, ':') != nullptr ? 10 : strchr(text, '.') != nullptr ? 2 : 7;
    (void)inet_pton(address.wSinFamily, text, address.abyAddr);
    return address;
}

// Closed when no connection could be made.
UniqueFd ConnectTo(const char* name);
inline UniqueFd ConnectToDaemon() {
    return ConnectTo(TESSEL_SOCKET_API);
}

// Writes one message with the given header words and payload and reads until the daemon closes: everything it answered,
// header included. Nothing when no connection could be made.
std::optional<std::string> SendRaw(u32 type, i32 size, std::string_view payload);

// The process that listens; 0 when nobody does.
pid_t ServingPid();

// One well-formed request; the reply's payload, or nothing when there was none.
std::optional<std::string> Request(u32 type, std::string_view payload);

// Whether a request is answered.
bool Serves();

// The reply as a record, with zeros where it is shorter. There has to be one.
template <typename Record>
Record ReplyTo(u32 type, std::string_view payload) {
    Record record{};
    const std::string reply = Request(type, payload).value();
    memcpy(&record, reply.data(), std::min(reply.size(), sizeof(record)));
    return record;
}

// The payload of an answer to a request, header first; nothing when there is none.
std::optional<std::string> PayloadOf(u32 type, const std::optional<std::string>& answer);

// A reply's status word; 12345 without a reply.
i32 StatusOf(const std::optional<std::string>& reply);
inline i32 RequestStatus(u32 type, std::string_view payload) {
    return StatusOf(Request(type, payload));
}

// Programs in front of PATH that note how they are called and answer as a test says.
class StandInTools {
  public:
    explicit StandInTools(const std::vector<std::string>& names);

    // How a tool called with exactly this line ("ip -4 addr show dev eth0") answers; unknown lines succeed silently.
    void Answer(const std::string& line, const std::string& output, int status = 0);

    // Where the programs lie.
    [[nodiscard]] const std::string& Directory() const {
        return directory_;
    }

    // The lines run since the last call, in order.
    std::vector<std::string> TakeRuns();

  private:
    std::string directory_;
};

// Starts the daemon, waits until it serves; ends it and checks that nothing else had ended it.
class Daemon {
  public:
    explicit Daemon(const char* program = TESSEL_DAEMON_PATH);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    [[nodiscard]] pid_t Pid() const {
        return pid_;
    }

  private:
    pid_t pid_ = 0;
};

}  // namespace tessel::test
