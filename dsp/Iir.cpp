#include "dsp/Iir.h"

#include <cmath>
#include <cstring>

#include "math/DenseKernels.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

Iir::~Iir() {
    delete[] xHistory;
    delete[] yHistory;
}

void Iir::readProperties(const PropertyMap& p) {
    std::string text;
    p.readRequired("Order", text, InvalidArgumentException("Iir: Order is not defined. Iir name=" + elementName));
    const int order = Conversions::toInt(text);
    if (order == 0)
        throw InvalidArgumentException("Iir: Order must be greater than 0. Iir name: " + elementName + " Order=" + text);
    setOrder(order);
    std::string aText, bText;
    p.readRequired("A", aText, InvalidArgumentException("Iir: A is not defined. Iir name=" + elementName));
    ScalarVectorPtr a = Conversions::toVector(aText);
    if (static_cast<int>(a->size()) != order)
        throw InvalidArgumentException(
            str("Iir: Invalid number of values for A (", aText, "). Expected ", order, ". Iir name=", elementName));
    p.readRequired("B", bText, InvalidArgumentException("Iir: B is not defined. Iir name=" + elementName));
    ScalarVectorPtr b = Conversions::toVector(bText);
    if (static_cast<int>(b->size()) != order + 1)
        throw InvalidArgumentException(
            str("Iir: Invalid number of values for B (", bText, "). Expected ", order + 1, ". Iir name=", elementName));
    setA(*a);
    setB(*b);
}

void Iir::allocateHistories() {
    delete[] xHistory;
    delete[] yHistory;
    const size_t size = static_cast<size_t>(maxBlockSize) + taps - 1;
    xHistory = new scalar[size]();
    yHistory = new scalar[size]();
}

void Iir::setOrder(int order) {
    if (order < 1) throw KELMException(str("Iir: Invalid order", order));
    taps = order + 1;
    if (maxBlockSize >= 1) allocateHistories();
}

void Iir::setMaxBlockSize(int n) {
    if (n < 1) throw KELMException(str("Iir: Invalid maxBlockSize", n));
    if (n > maxBlockSize) {
        maxBlockSize = n;
        delete[] buffer;
        buffer = new scalar[n]();
        outputs.assign(1, buffer);
        if (taps != 0) allocateHistories();
    }
}

void Iir::setA(const ScalarVector& a) {
    if (static_cast<int>(a.size()) != taps - 1)
        throw InvalidArgumentException(
            str("Iir: Invalid number of \"A\" coefficients. Expected: ", taps - 1, " got: ", a.size()));
    aReversed.assign(a.rbegin(), a.rend());
}

void Iir::setB(const ScalarVector& b) {
    if (static_cast<int>(b.size()) != taps)
        throw InvalidArgumentException(str("Iir: Invalid number of \"B\" coefficients. Expected: ", taps, " got: ", b.size()));
    bReversed.assign(b.rbegin(), b.rend());
}

void Iir::propertyChanged(const std::string& name, scalar value) {
    if (name != "Order") throw InvalidArgumentException("Iir: Unknown property " + name);
    setOrder(static_cast<int>(std::round(value)));
}

void Iir::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name == "A")
        setA(*value);
    else if (name == "B")
        setB(*value);
    else
        throw InvalidArgumentException("Iir: Unknown property " + name);
}

void Iir::process(const scalar* in, scalar* out, size_t n) {
    if (n == 0 || !in || !out) return;
    const int T = taps;
    if (static_cast<int>(aReversed.size()) != T - 1)
        throw KELMException(
            str("Iir: Invalid length of \"a\" coefficients. Expecting: ", T - 1, ". Got: ", aReversed.size()));
    if (static_cast<int>(bReversed.size()) != T)
        throw KELMException(str("Iir: Invalid length of \"b\" coefficients. Expecting: ", T, ". Got: ", bReversed.size()));
    const size_t history = static_cast<size_t>(T - 1);
    const size_t m = std::min(history, n);
    std::memcpy(xHistory + history, in, m * sizeof(scalar));
    for (size_t i = 0; i < m; ++i) {
        scalar y = dot(xHistory + i, bReversed.data(), T);
        yHistory[history + i] = y - dot(yHistory + i, aReversed.data(), T - 1);
    }
    std::memcpy(out, yHistory + history, m * sizeof(scalar));
    if (m == history) {
        for (size_t i = m; i < n; ++i) {
            scalar y = dot(in + i - history, bReversed.data(), T);
            out[i] = y - dot(out + i - history, aReversed.data(), T - 1);
        }
        std::memcpy(xHistory, in + n - history, history * sizeof(scalar));
        std::memcpy(yHistory, out + n - history, history * sizeof(scalar));
    } else {
        std::memmove(xHistory, xHistory + m, history * sizeof(scalar));
        std::memmove(yHistory, yHistory + m, history * sizeof(scalar));
    }
}

scalar* Iir::process(scalar* in, size_t n) {
    process(static_cast<const scalar*>(in), buffer, n);
    return buffer;
}

ScalarVector& Iir::iterate(const ScalarVectorPtr& inputs, int, int) {
    const int T = taps;
    xHistory[T - 1] = (*inputs)[0];
    yHistory[T - 1] = dot(xHistory, bReversed.data(), T) - dot(yHistory, aReversed.data(), T - 1);
    iterationResults[0] = yHistory[T - 1];
    return iterationResults;
}

void Iir::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
    std::memmove(xHistory, xHistory + 1, (taps - 1) * sizeof(scalar));
    std::memmove(yHistory, yHistory + 1, (taps - 1) * sizeof(scalar));
}

void Iir::reset() {
    if (!xHistory) return;
    const size_t size = static_cast<size_t>(maxBlockSize) + taps - 1;
    std::memset(xHistory, 0, size * sizeof(scalar));
    std::memset(yHistory, 0, size * sizeof(scalar));
}

} // namespace kelm
