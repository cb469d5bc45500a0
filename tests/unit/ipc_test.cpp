#include "core/ipc.h"

#include <sys/socket.h>

#include "core/unique_fd.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

// A socket under a name.
struct Socket {
    UniqueFd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    socklen_t length = 0;

    i32 Make(decltype(&MakeAddrServer) how, const std::string& name) {
        return how(fd.Get(), name.c_str(), &address, &length);
    }
};

TEST(Address, PathsUpTo101CharactersAreTaken) {
    const std::string longest(101 - strlen(TESSEL_SOCKET_DIRECTORY), 'n');
    Socket server;
    EXPECT_EQ(server.Make(&MakeAddrServer, longest + "n"), -1);
    EXPECT_EQ(server.Make(&MakeAddrServer, longest), 0);
    EXPECT_EQ(server.length, 103U);
    EXPECT_TRUE(std::filesystem::is_socket(server.address.sun_path));
    EXPECT_EQ(Socket().Make(&MakeAddrClient, longest), 0);
    EXPECT_EQ(Socket().Make(&MakeAddrClient, longest + "n"), -1);
}

TEST(Address, ClientWaitsForTheFileAndForTheListener) {
    const auto start = steady_clock::now();
    EXPECT_EQ(Socket().Make(&MakeAddrClient, "nobody"), -1);
    const auto passed = steady_clock::now() - start;
    EXPECT_GE(passed, 7s) << "5 for the file, 2 between 3 attempts";
    EXPECT_LT(passed, 15s);
}

TEST(Exchange, RefusesWhatIsHalfGivenOrTooLong) {
    char data[4000] = {};
    i32 reply = 0;
    const auto start = steady_clock::now();
    const auto expectRefused = [](auto... results) { EXPECT_THAT((std::vector<i32>{results...}), testing::Each(-1)); };
    expectRefused(IpcApiSendAndRecv(1, data, 0, nullptr, 0), IpcApiSendAndRecv(1, nullptr, 4, nullptr, 0),
                  IpcApiSendAndRecv(1, nullptr, 0, &reply, 0), IpcApiSendAndRecv(1, nullptr, 0, nullptr, 4),
                  IpcApiSendAndRecv(1, data, -5, nullptr, 0),
                  IpcCallbackSendAndRecv("nobody", 1, data, 3073, nullptr, 0), IpcApiSendMsg(0, 1, data, 0, 0),
                  IpcApiSendMsg(0, 1, nullptr, 4, 0));
    EXPECT_LT(steady_clock::now() - start, 3s) << "nobody was looked for";
}

TEST(Reply, OfAnySizeReachesASlowReader) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const UniqueFd daemonEnd(ends[0]);
    UniqueFd clientEnd(ends[1]);
    const std::string payload(3000000, 'b');
    const IpcMsgHead head{.type = 0x115, .size = 3000000, .flag = 9};
    std::string received(payload.size() + 100, '#');
    std::thread reader([&] {
        received.resize(static_cast<std::size_t>(recv(ends[1], received.data(), received.size(), MSG_WAITALL)));
    });
    EXPECT_EQ(IpcApiSendMsg(daemonEnd.Get(), 0x115, payload.data(), static_cast<i32>(payload.size()), 9), 0);
    shutdown(daemonEnd.Get(), SHUT_WR);
    reader.join();
    EXPECT_TRUE(received == std::string(Bytes(head)) + payload);

    clientEnd.Reset();
    EXPECT_EQ(IpcApiSendMsg(daemonEnd.Get(), 0x115, "x", 1, 0), -1) << "nobody is there: no signal, a failure";
}

}  // namespace
}  // namespace tessel::test
