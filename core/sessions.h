// A fixed pool of sessions, for features that serve a limited number of clients at a time.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>

namespace tessel {

// `Session` is constructed once for each slot and used again and again: whoever takes one fills it in.
//
// The caller of Find, Take and GiveBack holds the pool's lock, which is never held while a worker is joined or a tool
// runs. A session handed out by Take belongs to whoever took it until it is given back.
template <typename Session, std::size_t kMax>
class Sessions {
  public:
    using Lock = std::unique_lock<std::mutex>;

    [[nodiscard]] Lock Hold() {
        return Lock(mutex_);
    }

    // The session in use for which matches(session) is true; null when there is none.
    template <typename Predicate>
    [[nodiscard]] Session* Find(const Lock&, Predicate matches) {
        for (Slot& slot : slots_) {
            if (slot.isInUse && matches(slot.session)) return &slot.session;
        }
        return nullptr;
    }

    // The first free one, now in use; null when all are.
    [[nodiscard]] Session* Take(const Lock&) {
        for (Slot& slot : slots_) {
            if (slot.isInUse) continue;
            slot.isInUse = true;
            return &slot.session;
        }
        return nullptr;
    }

    void GiveBack(const Lock&, const Session& session) {
        for (Slot& slot : slots_) {
            if (&slot.session == &session) slot.isInUse = false;
        }
    }

  private:
    struct Slot {
        bool isInUse = false;
        Session session{};
    };

    std::mutex mutex_;
    std::array<Slot, kMax> slots_{};
};

}  // namespace tessel
