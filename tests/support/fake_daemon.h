// A daemon that answers as a test says, over the real socket.
#pragma once

#include <sys/socket.h>

#include <functional>
#include <mutex>

#include "core/ipc.h"
#include "tests/support/daemon.h"

namespace tessel::test {

struct SeenRequest {
    u32 type;
    std::string payload;
};

class FakeDaemon {
  public:
    // What goes onto the wire for a request; empty: the connection is closed without a word.
    using Answer = std::function<std::string(const SeenRequest&)>;

    explicit FakeDaemon(Answer answer) : answer_(std::move(answer)) {
        sockaddr_un address{};
        socklen_t length = 0;
        (void)MakeAddrServer(listener_.Get(), TESSEL_SOCKET_API, &address, &length);
        thread_ = std::jthread([this] { Serve(); });
    }
    ~FakeDaemon() {
        shutdown(listener_.Get(), SHUT_RDWR);
        unlink(TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API);
    }

    [[nodiscard]] std::vector<SeenRequest> Requests() {
        const std::lock_guard lock(lock_);
        return requests_;
    }

    // A message as the daemon sends it.
    template <typename Record>
    static std::string Message(const Record& record) {
        const IpcMsgHead head{.type = 0, .size = sizeof(record), .flag = 0};
        return std::string(Bytes(head)).append(Bytes(record));
    }

  private:
    void Serve() {
        while (true) {
            const UniqueFd connection(accept(listener_.Get(), nullptr, nullptr));
            if (!connection.IsOpen()) return;
            char bytes[sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX];
            const ssize_t count = read(connection.Get(), bytes, sizeof(bytes));
            IpcMsgHead head{};
            memcpy(&head, bytes, sizeof(head));
            EXPECT_EQ(head.flag, 0U);
            EXPECT_EQ(head.size + static_cast<ssize_t>(sizeof(head)), count);
            const SeenRequest seen{head.type, std::string(bytes + sizeof(head), bytes + count)};
            const std::string reply = answer_(seen);
            const std::lock_guard lock(lock_);
            requests_.push_back(seen);
            (void)send(connection.Get(), reply.data(), reply.size(), MSG_NOSIGNAL);
        }
    }

    UniqueFd listener_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    Answer answer_;
    std::mutex lock_;
    std::vector<SeenRequest> requests_;
    std::jthread thread_;  // joined first
};

// Answers success and does nothing.
inline std::string IdleAnswer(const SeenRequest&) {
    return FakeDaemon::Message(TNetStatusReply{.nResult = 0});
}

}  // namespace tessel::test
