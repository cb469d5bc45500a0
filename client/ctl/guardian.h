// A process that holds the settings of before and takes a change back unless somebody keeps it: it outlives the session
// that the change may cut.
#pragma once

#include <csignal>

#include "client/ctl/command.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

// What is to be put back.
struct Saved {
    Json state;                                        // state.h
    std::vector<std::pair<int, std::string>> filters;  // by family, as the tools save them
};
[[nodiscard]] Saved SaveSettings(const std::string& asked);

constexpr char kKept[] = "kept";
constexpr char kTakenBack[] = "taken back";

// The guardian as its file shows it. It holds a lock on the file as long as it lives, and is sent signals.
class Guardian {
  public:
    enum Order : int { kKeep = SIGUSR1, kTakeBack = SIGUSR2, kBegin = SIGALRM /* the command is through */ };

    // This user's, if one lives.
    [[nodiscard]] static std::optional<Guardian> Find();
    // Takes everything back `seconds` after kBegin, in any case after the time for an answer and those. Throws a
    // Failure.
    [[nodiscard]] static Guardian Start(const Invocation& outer, const Saved& saved, u32 seconds,
                                        const std::string& command);

    void Send(Order order) const;
    [[nodiscard]] bool IsOver() const;
    // {"pid", "command", "state": "running", "waiting", kKept or kTakenBack, "until" or null}; at the end with
    // "results" (BringTo) and "problems".
    [[nodiscard]] const Json& Document() const {
        return document_;
    }
    // Waits for its end.
    const Json& LastDocument();

  private:
    explicit Guardian(int file) : file_(file) {}
    void Read();

    UniqueFd file_;
    Json document_;
};

}  // namespace tessel::ctl
