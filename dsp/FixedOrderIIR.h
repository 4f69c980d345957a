#pragma once
#include <string>

#include "dsp/SingleOutputFilter.h"
#include "engine/InvalidArgumentException.h"
#include "engine/PropertiesHandler.h"
#include "engine/Str.h"

namespace kelm {

// Direct form I recursive filter of fixed order N with unrolled code:
// y[n] = b0 x[n] + ... + bN x[n-N] - a1 y[n-1] - ... - aN y[n-N].
// Property "A" holds a1..aN, "B" holds b0..bN. Single precision throughout.
template <int N>
class FixedOrderIIR : public SingleOutputFilter {
public:
    void init(const std::string& name, std::shared_ptr<DSPContext>& ctx) override {
        SingleOutputFilter::init(name, ctx);
        clearState();
    }
    using SingleOutputFilter::init;

    scalar process(scalar x) override {
        scalar s = b[1] * xs[0] + b[0] * x;
        for (int k = 2; k <= N; ++k) s = s + b[k] * xs[k - 1];
        for (int k = 1; k <= N; ++k) s = s - a[k - 1] * ys[k - 1];
        x0 = x;
        for (int k = N - 1; k > 0; --k) {
            xs[k] = xs[k - 1];
            ys[k] = ys[k - 1];
        }
        xs[0] = x;
        ys[0] = s;
        return s;
    }
    scalar* process(scalar*, size_t) override { return nullptr; }

    void process(const scalar* in, scalar* out, size_t n) override {
        if (n == 0 || !in || !out) return;
        const size_t head = n < static_cast<size_t>(N) ? n : N;
        for (size_t i = 0; i < head; ++i) out[i] = process(in[i]);
        if (n <= static_cast<size_t>(N)) return;
        scalar ca[N], cb[N + 1];
        for (int k = 0; k < N; ++k) ca[k] = a[k];
        for (int k = 0; k <= N; ++k) cb[k] = b[k];
        for (size_t i = N; i < n; ++i) {
            scalar s = cb[1] * in[i - 1] + cb[0] * in[i];
            for (int k = 2; k <= N; ++k) s = s + cb[k] * in[i - k];
            for (int k = 1; k <= N; ++k) s = s - ca[k - 1] * out[i - k];
            out[i] = s;
        }
        for (int k = 0; k < N; ++k) {
            xs[k] = in[n - 1 - k];
            ys[k] = out[n - 1 - k];
        }
        x0 = in[n - 1];
    }

    void process(BufferList& inputs, BufferList& outs, size_t n) override {
        const scalar* in = inputs.empty() ? nullptr : inputs[0];
        scalar* out = outs.empty() ? nullptr : outs[0];
        if (propertiesHandler && propertiesHandler->isPerSample()) {
            if (!in || !out) return;
            if (propertiesHandler->runPerSample(*this, in, out, n)) return;
            for (size_t i = 0; i < n; ++i) {
                propertiesHandler->updateForSample(in[i], ys[0]);
                out[i] = process(in[i]);
            }
        } else {
            process(in, out, n);
        }
    }
    using SingleOutputFilter::process;

    void processTwin(Filter& other, BufferList& inputs, BufferList& twinInputs, size_t n) override {
        // Two filters driven per sample by their handlers run in one loop when the handlers
        // know how; anything else one after the other.
        FixedOrderIIR* twin = dynamic_cast<FixedOrderIIR*>(&other);
        if (twin && twin != this && propertiesHandler && twin->propertiesHandler && propertiesHandler->isPerSample() &&
            twin->propertiesHandler->isPerSample()) {
            const scalar* in = inputs.empty() ? nullptr : inputs[0];
            const scalar* twinIn = twinInputs.empty() ? nullptr : twinInputs[0];
            if (in && twinIn && outputs[0] && twin->outputs[0] &&
                propertiesHandler->runPerSampleTwin(*this, in, outputs[0], *twin->propertiesHandler, *twin, twinIn,
                                                    twin->outputs[0], n))
                return;
        }
        Filter::processTwin(other, inputs, twinInputs, n);
    }

    ScalarVector& iterate(const ScalarVectorPtr& inputs, int, int iteration) override {
        const bool handled = perSampleHandlerInIteration() && propertiesHandler && propertiesHandler->isPerSample();
        if (handled) propertiesHandler->updateForIteration((*inputs)[0], iterationResults[0], iteration);
        if (handled || iteration == 0) {
            partial = 0;
            for (int k = 1; k <= N; ++k) partial += xs[k - 1] * b[k];
            for (int k = 1; k <= N; ++k) partial -= ys[k - 1] * a[k - 1];
        }
        x0 = (*inputs)[0];
        iterationResults[0] = b[0] * x0 + partial;
        return iterationResults;
    }

    void endIteration(int frame) override {
        for (int k = N - 1; k > 0; --k) {
            xs[k] = xs[k - 1];
            ys[k] = ys[k - 1];
        }
        xs[0] = x0;
        ys[0] = iterationResults[0];
        if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
    }

    void reset() override { clearState(); }

    void propertyChanged(const std::string& name, const ScalarVectorPtr& value) override {
        if (name == "A") {
            if (!value || value->size() != static_cast<size_t>(N))
                throw InvalidArgumentException(str(className(), ": Invalid number of A values ", value ? value->size() : 0));
            for (int k = 0; k < N; ++k) a[k] = (*value)[k];
        } else if (name == "B") {
            if (!value || value->size() != static_cast<size_t>(N + 1))
                throw InvalidArgumentException(str(className(), ": Invalid number of B values ", value ? value->size() : 0));
            for (int k = 0; k <= N; ++k) b[k] = (*value)[k];
        } else {
            throw InvalidArgumentException(str(className(), ": Unknown property ", name));
        }
    }
    using Filter::propertyChanged;

    // Copies a1..aN and b0..bN; a is checked and copied before b is checked.
    virtual void setCoefficients(const scalar* newA, const scalar* newB) {
        if (!newA) throw KELMException(str(className(), ": a cannot be null"));
        for (int k = 0; k < N; ++k) a[k] = newA[k];
        if (!newB) throw KELMException(str(className(), ": b cannot be null"));
        for (int k = 0; k <= N; ++k) b[k] = newB[k];
    }

    scalar coefficientA(int k) const { return a[k]; }
    scalar coefficientB(int k) const { return b[k]; }

    // The history as the block path leaves it, for code that runs this filter's
    // equation itself (a fused cascade) and hands the state back afterwards:
    // x[n-1] ... x[n-N] and y[n-1] ... y[n-N].
    const scalar* pastInputs() const { return xs; }
    const scalar* pastOutputs() const { return ys; }
    void setHistory(const scalar* pastIn, const scalar* pastOut) {
        for (int k = 0; k < N; ++k) {
            xs[k] = pastIn[k];
            ys[k] = pastOut[k];
        }
        x0 = xs[0];
    }
    // The output buffer, for the same code.
    scalar* outputBuffer() { return buffer; }

protected:
    // Only BiQuad consults its handler inside iterations.
    virtual bool perSampleHandlerInIteration() const { return false; }

    void readProperties(const PropertyMap& p) override {
        const std::string owner = str(className(), " name=", elementName);
        std::string text;
        p.readRequired("A", text, InvalidArgumentException("A is not defined. " + owner));
        ScalarVectorPtr v = Conversions::toVector(text);
        if (v->size() != static_cast<size_t>(N))
            throw InvalidArgumentException(str("Invalid number of values for A (", text, "). Expected ", N, ". ", owner));
        for (int k = 0; k < N; ++k) a[k] = (*v)[k];
        p.readRequired("B", text, InvalidArgumentException("B is not defined. " + owner));
        v = Conversions::toVector(text);
        if (v->size() != static_cast<size_t>(N + 1))
            throw InvalidArgumentException(
                str("Invalid number of values for B (", text, "). Expected ", N + 1, ". ", owner));
        for (int k = 0; k <= N; ++k) b[k] = (*v)[k];
        clearState();
    }

    void clearState() {
        x0 = partial = 0;
        for (int k = 0; k < N; ++k) xs[k] = ys[k] = 0;
    }

    scalar a[N] = {};
    scalar b[N + 1] = {};
    scalar x0 = 0;
    scalar xs[N] = {};  // x[n-1] ... x[n-N]
    scalar ys[N] = {};  // y[n-1] ... y[n-N]
    scalar partial = 0;
};

} // namespace kelm
