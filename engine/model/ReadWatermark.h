#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace kestrel::engine {

// How far a snapshot being read on one thread is final, for one other thread
// that follows the reading (a comparison that starts before the file is
// read). Entries 1..last published are written whole and are never written
// again by the reading; the table and the name and version stores do not move
// meanwhile. What the reading does after its last entry (fitting the table to
// it, reading the side files, an import) waits until the follower lets go.
class ReadWatermark {
public:
    struct Progress {
        int32_t final = 0;  // entries 1..final may be read
        bool ended = false; // the reading is over: no entry will follow final
    };

    // The reader: entries 1..last are final.
    void publish(int32_t last) {
        m_state.store(uint64_t(uint32_t(last)), std::memory_order_seq_cst);
        const int32_t wakeAt = m_wakeAt.load(std::memory_order_seq_cst);
        if (wakeAt == INT32_MAX)
            return;
        if (last >= wakeAt) {
            m_state.notify_all();
            return;
        }
        // A slow reading (a file on a slow share) wakes a waiting follower
        // a few times a second all the same: the follower may be the user
        // interface's thread, letting events through while it waits.
        const auto now = std::chrono::steady_clock::now();
        if (wakeAt != m_waitSeen) {
            m_waitSeen = wakeAt;
            m_waitSeenAt = now;
        } else if (now - m_waitSeenAt >= std::chrono::milliseconds(50)) {
            m_waitSeenAt = now;
            m_state.notify_all();
        }
    }

    // The reader, as it stops for whatever reason: no entry beyond last will
    // come. Returns once the follower has let go of the snapshot.
    void endReading(int32_t last) {
        m_state.store(uint64_t(uint32_t(last)) | Ended, std::memory_order_release);
        m_state.notify_all();
        m_released.wait(false, std::memory_order_acquire);
    }

    // The follower: waits until entry index is final or the reading ended.
    // A follower that caught up is woken only once the reading is well past
    // index: each wake-up costs both threads far more than the entries
    // between (a follower is faster than the reading it follows).
    Progress waitFor(int32_t index) const {
        uint64_t state = m_state.load(std::memory_order_acquire);
        if (int32_t(uint32_t(state)) < index && !(state & Ended)) {
            const int32_t wakeAt = index > INT32_MAX - WakeAhead ? INT32_MAX : index + WakeAhead;
            // The reader stores its state before it looks at wakeAt, the
            // follower wakeAt before it looks at the state: one of them sees
            // the other's store, so no wake-up is lost.
            m_wakeAt.store(wakeAt, std::memory_order_seq_cst);
            state = m_state.load(std::memory_order_seq_cst);
            while (int32_t(uint32_t(state)) < wakeAt && !(state & Ended)) {
                m_state.wait(state, std::memory_order_acquire);
                state = m_state.load(std::memory_order_acquire);
                // Woken early (a slow reading): enough to go on with.
                if (int32_t(uint32_t(state)) >= index)
                    break;
            }
            m_wakeAt.store(INT32_MAX, std::memory_order_relaxed);
        }
        return {int32_t(uint32_t(state)), (state & Ended) != 0};
    }

    // The follower: done with the snapshot, or not following at all. The
    // reader may go on past its last entry.
    void release() {
        m_released.store(true, std::memory_order_release);
        m_released.notify_all();
    }

private:
    static constexpr uint64_t Ended = uint64_t(1) << 32;
    // How far past the entry it needs a waiting follower sleeps.
    static constexpr int32_t WakeAhead = 16384;
    std::atomic<uint64_t> m_state{0};
    mutable std::atomic<int32_t> m_wakeAt{INT32_MAX}; // a waiting follower's wish
    std::atomic<bool> m_released{false};
    // The reader's own: the wish it last saw, and when it saw it.
    int32_t m_waitSeen = INT32_MAX;
    std::chrono::steady_clock::time_point m_waitSeenAt;
};

} // namespace kestrel::engine
