// Sessions that clients start and stop under a key of their own, each with a worker: ping, traceroute, router watch.
#pragma once

#include <cstddef>

#include "core/sessions.h"
#include "core/worker.h"

namespace tessel {

// `Session` holds what a client has asked for; Session{} is what a free slot holds. The caller of Find, Take and Run
// holds the lock, which is never held while a worker runs a tool, sends a notice or is waited for.
template <typename Session, std::size_t kMax>
class ClientSessions {
    struct Slot;
    using Slots = Sessions<Slot, kMax>;

  public:
    // What a session's worker does. It reads its session without the lock, except for what clients may change
    // meanwhile. True: its work is done, and the slot is free immediately; false: the slot stays taken until the
    // session is stopped.
    using Body = bool (*)(const Worker& self, Session& session);

    using Lock = typename Slots::Lock;  // after Body: this makes clang look into Slot

    [[nodiscard]] Lock Hold() {
        return slots_.Hold();
    }

    // The session for which matches(session) is true, even while it is being stopped; null when there is none.
    template <typename Predicate>
    [[nodiscard]] Session* Find(const Lock& lock, Predicate matches) {
        Slot* const slot = slots_.Find(lock, [&](const Slot& each) { return matches(each.session); });
        return slot != nullptr ? &slot->session : nullptr;
    }

    // The first free one, which the caller fills in and runs before releasing the lock; null when all are taken.
    [[nodiscard]] Session* Take(const Lock& lock) {
        Slot* const slot = slots_.Take(lock);
        return slot != nullptr ? &slot->session : nullptr;
    }

    // Starts the worker of a session that was taken, in a thread of that name (a literal). False, with a log line, when
    // no thread can be started: the slot is then free again.
    [[nodiscard]] bool Run(const Lock& lock, Session& session, const char* threadName, Body body) {
        Slot& slot = *slots_.Find(lock, [&](const Slot& each) { return &each.session == &session; });
        slot.owner = this;
        slot.body = body;
        // The slot's last worker gave it back as the last thing it did: this takes no time.
        slot.worker.End();
        if (slot.worker.Start(threadName, &ClientSessions::RunBody, &slot)) return true;
        Clear(lock, slot, Clearer::kClient);
        return false;
    }

    // Ends the session for which matches(session) is true, whatever its worker waits for, and frees its slot. False
    // when there is none, or when another thread is stopping it. Called without the lock.
    template <typename Predicate>
    bool Stop(Predicate matches) {
        Slot* slot = nullptr;
        {
            const Lock lock = Hold();
            slot = slots_.Find(lock, [&](const Slot& each) { return !each.isStopping && matches(each.session); });
            if (slot == nullptr) return false;
            slot->isStopping = true;
        }
        slot->worker.End();
        Clear(Hold(), *slot, Clearer::kClient);
        return true;
    }

  private:
    struct Slot {
        Session session{};
        ClientSessions* owner = nullptr;
        Body body = nullptr;
        bool isStopping = false;  // whoever set it clears the slot
        Worker worker;            // last: it ends before what it uses
    };
    enum class Clearer { kClient, kWorker };

    static void RunBody(Worker& self, void* runningSlot) {
        Slot& slot = *static_cast<Slot*>(runningSlot);
        if (slot.body(self, slot.session)) slot.owner->Clear(slot.owner->Hold(), slot, Clearer::kWorker);
    }

    // The one place where slots are freed: by their worker at its end, unless somebody is stopping it and waits for
    // that.
    void Clear(const Lock& lock, Slot& slot, Clearer clearer) {
        if (clearer == Clearer::kWorker && slot.isStopping) return;
        slot.session = Session{};
        slot.isStopping = false;
        slots_.GiveBack(lock, slot);
    }

    Slots slots_;
};

}  // namespace tessel
