#pragma once
#include "dsp/FixedOrderIIR.h"

namespace kelm {

// Third-order recursive filter: A = a1|a2|a3, B = b0|..|b3, and a required
// "InputIndex" that is checked and not used.
class ThirdOrderIIR : public FixedOrderIIR<3> {
public:
    const char* className() const override { return "ThirdOrderIIR"; }
    scalar* process(scalar* in, size_t n) override {
        FixedOrderIIR<3>::process(static_cast<const scalar*>(in), buffer, n);
        return buffer;
    }
    using FixedOrderIIR<3>::process;
    scalar* getOutput(int index) override {
        if (index != 0) throw InvalidArgumentException(str("BiQuad: Invalid output index: ", index));
        return buffer;
    }

protected:
    void readProperties(const PropertyMap& p) override {
        FixedOrderIIR<3>::readProperties(p);
        std::string text;
        p.readRequired("InputIndex", text, InvalidArgumentException("InputIndex is not defined. BiQuad name=" + elementName));
        inputIndex = Conversions::toInt(text);
        if (inputIndex < 0)
            throw InvalidArgumentException("InputIndex must be greater than or equal to 0. BiQuad name=" + elementName +
                                           " InputIndex=" + text);
    }

private:
    int inputIndex = 0;
};

} // namespace kelm
