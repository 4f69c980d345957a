#include "dsp/Convolver.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "math/DenseKernels.h"
#include "engine/InvalidArgumentException.h"
#include "engine/OperationNotSupportedException.h"
#include "engine/Str.h"

namespace kelm {

namespace {
// Aligned blocks from plain malloc (not every C library has aligned_alloc): the block
// starts at the first aligned address past a pointer-sized slot that keeps what malloc gave.
void* alignedAlloc(size_t alignment, size_t bytes) {
    void* raw = std::malloc(bytes + alignment + sizeof(void*));
    if (!raw) return nullptr;
    const uintptr_t start = reinterpret_cast<uintptr_t>(raw) + sizeof(void*);
    void* aligned = reinterpret_cast<void*>((start + alignment - 1) / alignment * alignment);
    static_cast<void**>(aligned)[-1] = raw;
    return aligned;
}

void freeAligned(void* p) {
    if (p) std::free(static_cast<void**>(p)[-1]);
}
} // namespace

Buffer::Buffer(unsigned capacity) {
    if (capacity == 0) throw InvalidArgumentException(str("Buffer size cannot be less than 1. size=", capacity));
    const size_t bytes = (static_cast<size_t>(capacity) * sizeof(float) + alignment - 1) / alignment * alignment;
    samples = static_cast<float*>(alignedAlloc(alignment, bytes));
    if (!samples) throw std::bad_alloc();
    room = used = capacity;
    clear();
}

Buffer::~Buffer() { freeAligned(samples); }

void Buffer::append(const float* values, unsigned n) {
    if (n >= room) {
        std::memcpy(samples, values + (n - room), room * sizeof(float));
        return;
    }
    std::memmove(samples, samples + n, (room - n) * sizeof(float));
    std::memcpy(samples + (room - n), values, n * sizeof(float));
}

void Buffer::clear() {
    std::memset(samples, 0, room * sizeof(float));
    used = room;
}

float* Convolver::allocate(size_t floats) {
    const size_t bytes = (floats * sizeof(float) + 63) / 64 * 64;
    void* p = alignedAlloc(64, bytes);
    if (!p) throw std::bad_alloc();
    std::memset(p, 0, bytes);
    return static_cast<float*>(p);
}

Convolver::~Convolver() {
    freeAligned(irSpectrum);
    freeAligned(work);
    freeAligned(productSpectrum);
    freeAligned(fftWork);
    freeAligned(buffer);
    buffer = nullptr;  // not the base's to delete: it came from aligned_alloc
}

void Convolver::init(const std::string& name, const PropertyMapPtr& props, std::shared_ptr<DSPContext>& ctx) {
    Filter::init(name, ctx);
    if (props) properties = *props;
    properties.readRequired("MaxIRSize", maxIRSize, KELMException("MaxIRSize is not defined. Convolver name=" + name));
    if (maxIRSize < 1)
        throw InvalidArgumentException(
            str("MaxIRSize must be greater than or equal to 0. Convolver name=", name, " MaxIRSize=", maxIRSize));
    setupOutputs();
}

unsigned Convolver::next(unsigned m) {
    if (m <= 1) return 1;
    if (m % 2 == 0) return 2 * next(m / 2);
    if (m % 3 == 0) return 3 * next(m / 3);
    if (m % 5 == 0) return 5 * next(m / 5);
    return 2 * next((m + 1) / 2);
}

unsigned Convolver::sizeFor(unsigned block, unsigned ir) {
    const unsigned m = (block - 1 + ir + 63) / 64;
    return 64 * next(m);
}

unsigned Convolver::headLength(unsigned block) {
    unsigned h = 64;
    while (h < block) h *= 2;
    return h;
}

void Convolver::newSize(unsigned size) {
    const size_t bins = size / 2 + 1;
    if (size > allocatedSize) {
        freeAligned(productSpectrum);
        freeAligned(fftWork);
        freeAligned(work);
        productSpectrum = reinterpret_cast<RealFft::Complex*>(allocate(2 * bins));
        fftWork = reinterpret_cast<RealFft::Complex*>(allocate(2 * bins));
        work = allocate(size);
        std::unique_ptr<Buffer> grown(new Buffer(size));
        if (window) grown->append(window->data(), window->capacity());
        window = std::move(grown);
        freeAligned(irSpectrum);
        irSpectrum = reinterpret_cast<RealFft::Complex*>(allocate(2 * bins));
        freeAligned(buffer);
        buffer = allocate(size);
        outputs.assign(1, buffer);
    } else {
        std::fill(irSpectrum, irSpectrum + bins, RealFft::Complex(0, 0));
    }
    fftSize = size;
    fftSetup.reset(new RealFft(size));
    std::memset(work, 0, size * sizeof(float));
    const unsigned head = headLength(maxBlockSize);
    std::memcpy(work, impulseResponse.data(), std::min(irSize, head) * sizeof(float));
    fftSetup->forward(work, irSpectrum);
    allocatedSize = std::max(allocatedSize, size);
    if (tail.samePlan(irSize, head))
        tail.updateResponse(impulseResponse.data(), irSize);  // the signal goes on
    else
        tail.setResponse(impulseResponse.data(), irSize, head);
}

void Convolver::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str("Convolver: Invalid maxBlockSize", n));
    if (n > maxBlockSize) {
        maxBlockSize = n;
        if (irSize != 0) newSize(sizeFor(n, std::min(irSize, headLength(n))));
    }
}

void Convolver::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name != "ImpulseResponse") throw InvalidArgumentException("Convolver: Invalid property. Name=" + name);
    if (!value || value->empty()) throw InvalidArgumentException("Convolver: Invalid impulse response. IR is empty.");
    impulseResponse = *value;
    irSize = std::min(static_cast<unsigned>(value->size()), static_cast<unsigned>(maxIRSize));
    if (maxBlockSize == 0) return;
    newSize(sizeFor(maxBlockSize, std::min(irSize, headLength(maxBlockSize))));
}

void Convolver::process(BufferList& inputs, size_t n) {
    if (!fftSetup) throw KELMException("Convolver: " + elementName + " has no impulse response or block size yet.");
    const scalar* in = inputs.empty() ? nullptr : inputs[0];
    if (in) window->append(in, static_cast<unsigned>(n));
    // The newest fftSize samples: the window may be longer, from a larger size before.
    fftSetup->forward(window->data() + (window->capacity() - fftSize), fftWork);
    const size_t bins = fftSize / 2 + 1;
    std::fill(productSpectrum, productSpectrum + bins, RealFft::Complex(0, 0));
    // A block that is one chunk of the tail's first level: its transform serves both.
    const bool shared = in && fftSize == 2 * n && tail.canAbsorb(static_cast<unsigned>(n));
    if (shared) tail.absorb(productSpectrum, static_cast<float>(fftSize));
    for (size_t k = 0; k < bins; ++k) productSpectrum[k] += fftWork[k] * irSpectrum[k];
    fftSetup->inverse(productSpectrum, work);
    if (n != 0) std::memcpy(buffer, work + (fftSize - n), n * sizeof(float));
    scal(static_cast<int>(n), 1.0f / fftSize, buffer);
    if (in) tail.process(in, buffer, static_cast<unsigned>(n), shared ? fftWork : nullptr);
}

void Convolver::process(BufferList& inputs, BufferList& outs, size_t n) {
    process(inputs, n);
    if (!outs.empty() && outs[0] && outs[0] != buffer) std::memcpy(outs[0], buffer, n * sizeof(float));
}

void Convolver::reset() {
    if (window) window->clear();
    tail.clear();
}

ScalarVector& Convolver::iterate(const ScalarVectorPtr&, int, int) {
    throw OperationNotSupportedException("Convolver: Iteration is not supported.");
}
ScalarVector& Convolver::getLastIterationResults() {
    throw OperationNotSupportedException("Convolver: getLastIterationResults is not supported.");
}
void Convolver::endIteration(int) { throw OperationNotSupportedException("Convolver: endIteration is not supported."); }

} // namespace kelm
