// Notices of the daemon and changes in the kernel in one stream. Nothing is switched on or off for it.
#include "client/ctl/listening.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

constexpr std::string_view kKernel = "kernel";

// The names under which a kind's notices come now.
std::vector<std::string> NamesOf(std::string_view kind) {
    std::vector<std::string> names;
    for (const NoticeSocket& socket : NoticeSockets()) {
        if (socket.kind != kind) continue;
        if (socket.IsFixed()) {
            names.emplace_back(socket.name);
        } else {
            for (const std::string& name : ListenedNames(socket.name))
                names.push_back(name);
        }
    }
    return names;
}

Outcome Monitor(const Invocation& invocation) {
    const auto kinds = invocation.words.All<std::string>("KIND");
    Watch watch;
    const auto add = [&](const std::string& name) {
        const bool isThere = std::any_of(watch.sockets.begin(), watch.sockets.end(),
                                         [&](const WatchedSocket& socket) { return socket.name == name; });
        if (!isThere) watch.sockets.push_back({.name = name});
    };
    for (const std::string& kind : kinds) {
        if (kind == kKernel) continue;
        const auto names = NamesOf(kind);
        if (names.empty())
            throw Refused(invocation.asked,
                          Format("{0} notices go to whoever asked for them, and nobody did (see \"{0}\")", kind));
        for (const std::string& name : names)
            add(name);
    }
    watch.followsKernel = kinds.empty() || std::find(kinds.begin(), kinds.end(), kKernel) != kinds.end();
    for (const NoticeSocket& socket : NoticeSockets()) {
        const std::string name(socket.name);
        if (kinds.empty() && socket.IsFixed() && !FindListeningProcess(name)) add(name);
    }
    return RunWatch(invocation, watch);
}

constexpr Command kMonitorCommands[] = {
    Row("", "[KIND=ping|dhcp|ntp|conflict|ra|traffic|kernel]...", &Monitor,
        "notices and changes in the kernel as they come", "monitor conflict ntp kernel")
        .More("It only listens: \"conflict on\", \"ntp start\" and the like have notices sent. Those of ping, dhcp and "
              "ra "
              "go to the program that asked for them, and --take takes them from it. Without a kind: the kernel, and "
              "what nobody else listens for."),
};

}  // namespace

extern const Object kMonitor = {
    .name = "monitor", .summary = "what the daemon and the kernel report", .commands = kMonitorCommands};

}  // namespace tessel::ctl
