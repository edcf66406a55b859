// SnapshotLock: the snapshot store's lock. The DM library's thread takes
// it once per packet and holds it for a copy of at most a few hundred
// bytes; readers hold it about as briefly. Free, taking it is one atomic exchange and
// giving it back one store, where a std::mutex costs two atomic
// read-modify-writes and two library calls per packet. Held, a taker spins
// a little, then yields the core to the holder (the machine may have
// fewer cores than busy threads). Lock-free, so a signal handler may
// try_lock it.
#pragma once

#include <atomic>
#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

class SnapshotLock {
  public:
    void lock() {
        while (locked_.exchange(true, std::memory_order_acquire)) WaitWhileHeld();
    }
    bool try_lock() {
        return !locked_.load(std::memory_order_relaxed) &&
               !locked_.exchange(true, std::memory_order_acquire);
    }
    void unlock() { locked_.store(false, std::memory_order_release); }

  private:
    void WaitWhileHeld() const {
        constexpr int kSpins = 64;
        for (int i = 0; locked_.load(std::memory_order_relaxed); ++i) {
            if (i < kSpins) {
#if defined(__x86_64__) || defined(__i386__)
                _mm_pause();
#endif
            } else {
                std::this_thread::yield();
            }
        }
    }

    std::atomic<bool> locked_{false};
};
