#pragma once
#include <atomic>
#include <cstdint>

namespace kelm {

// The window's edits on their way to the host: gestures and values that the main thread
// adds and the thread that runs the plug-in's blocks (or a flush) takes, without a lock
// or an allocation. One thread adds, one takes at a time. When full, an edit is dropped
// (the plug-in already holds the value; only the host's record of it is lost).
class EditQueue {
public:
    enum Kind : uint8_t { Begin, Value, End };
    struct Edit {
        Kind kind;
        int index;
        float value;
    };
    static constexpr uint32_t kCapacity = 512;  // a power of two

    bool push(const Edit& e) {
        const uint32_t tail = written.load(std::memory_order_relaxed);
        if (tail - taken.load(std::memory_order_acquire) >= kCapacity) return false;
        edits[tail & (kCapacity - 1)] = e;
        written.store(tail + 1, std::memory_order_release);
        return true;
    }
    bool pop(Edit& e) {
        const uint32_t head = taken.load(std::memory_order_relaxed);
        if (head == written.load(std::memory_order_acquire)) return false;
        e = edits[head & (kCapacity - 1)];
        taken.store(head + 1, std::memory_order_release);
        return true;
    }

private:
    Edit edits[kCapacity] = {};
    std::atomic<uint32_t> written{0};
    std::atomic<uint32_t> taken{0};
};

} // namespace kelm
