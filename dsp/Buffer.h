#pragma once
#include <cstddef>

namespace kelm {

// A sliding window of the last `capacity` samples, 64-byte aligned.
class Buffer {
public:
    explicit Buffer(unsigned capacity);
    virtual ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    virtual float* data() { return samples; }
    virtual unsigned size() const { return used; }
    virtual unsigned capacity() const { return room; }
    // Moves the content down by n and copies n new samples to the end.
    virtual void append(const float* values, unsigned n);
    virtual void clear();

private:
    float* samples = nullptr;
    unsigned used = 0;
    unsigned room = 0;
    const unsigned alignment = 64;
};

} // namespace kelm
