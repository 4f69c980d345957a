// LookupTableAmp and SourceAdmittance at the edges of their grids.
#include "circuit/devices/LookupTableAmp.h"
#include "circuit/MNAContext.h"
#include "circuit/devices/SourceAdmittance.h"
#include "tests/TestUtil.h"

using namespace kelm;
using namespace kelm::test;

namespace {
template <typename T>
T* build(std::shared_ptr<MNAContext>& ctx, std::initializer_list<const char*> nodes, const PropertyMap& props) {
    std::unique_ptr<T> c(new T());
    auto names = std::make_shared<std::vector<std::string>>();
    for (auto n : nodes) names->push_back(n);
    c->init("t", std::make_shared<PropertyMap>(props), names, ctx);
    T* raw = c.get();
    ctx->addElement(c.release());
    return raw;
}
ScalarVectorPtr vec(std::initializer_list<float> v) { return std::make_shared<ScalarVector>(v); }
} // namespace

TEST(CircuitTableComponents, LookupTableAmpGridEdges) {
    auto ctx = std::make_shared<MNAContext>();
    auto* amp = build<LookupTableAmp>(ctx, {"in", "out"}, {{"VinMin", "-1"}, {"VinMax", "1"}, {"DeltaV", "0.5"},
                                                           {"Vout", "10|20|40|80|160"}, {"Iin", "0|0|1|2|4"}});
    ctx->init();
    EXPECT_TRUE(amp->isNonlinear());
    float x[2] = {-1.0f, 0};  // at VinMin
    EXPECT_FLOAT_EQ(10, amp->getRhs(x)[1]);
    x[0] = -0.6f;  // within the first step: still the first entry, no interpolation
    EXPECT_FLOAT_EQ(10, amp->getRhs(x)[1]);
    x[0] = -0.25f;  // halfway in the second cell
    EXPECT_FLOAT_EQ(30, amp->getRhs(x)[1]);
    EXPECT_FLOAT_EQ(-0.5f, amp->getRhs(x)[0]);
    x[0] = 5;  // saturates at the top
    EXPECT_FLOAT_EQ(160, amp->getRhs(x)[1]);
    EXPECT_FLOAT_EQ(-4, amp->getRhs(x)[0]);
    x[0] = -1e30f;
    EXPECT_FLOAT_EQ(10, amp->getRhs(x)[1]);
    x[0] = 0.25f;  // derivative of Iin: central difference (2 - 0) / (2 * 0.5) = 2 at entry 2, 3 at entry 3
    EXPECT_FLOAT_EQ(2.5f, amp->getJacobian(x)[0][0]);

    EXPECT_EQ("LookupTableAmp: size of Vout (2) is not equal to the size of values (5)",
              messageOf([&] { amp->propertyChanged("Vout", vec({1, 2})); }));
    x[0] = 5;
    EXPECT_FLOAT_EQ(160, amp->getRhs(x)[1]);  // the old table stays
    EXPECT_EQ("LookupTableAmp: empty Vout values array. ", messageOf([&] { amp->propertyChanged("Vout", vec({})); }));
    EXPECT_EQ("propertyChanged: Invalid property name: Gain. LookupTableAmp name=t",
              messageOf([&] { amp->propertyChanged("Gain", vec({1})); }));
}

// The Newton solves evaluate rhs and slope in one pass: the same values as the two
// separate calls, across the grid and beyond it, also for tables of unequal length.
TEST(CircuitTableComponents, LookupTableAmpEvaluatesRhsAndSlopeInOnePass) {
    for (const char* vout : {"10|20|40|80|160", "10|20|40"}) {
        auto ctx = std::make_shared<MNAContext>();
        auto* amp = build<LookupTableAmp>(ctx, {"in", "out"}, {{"VinMin", "-1"}, {"VinMax", "1"}, {"DeltaV", "0.5"},
                                                               {"Vout", vout}, {"Iin", "0|0.5|1|2|4"}});
        ctx->init();
        for (float v = -1.7f; v < 1.8f; v += 0.0625f) {
            float x[2] = {v, 0};
            const float i = amp->getRhs(x)[0], out = amp->getRhs(x)[1];
            const float slope = amp->getJacobian(x)[0][0];
            scalar** stamp = nullptr;
            const float* r = amp->evaluate(x, stamp);
            ASSERT_NE(nullptr, stamp);
            EXPECT_EQ(i, r[0]) << vout << " at " << v;
            EXPECT_EQ(out, r[1]) << vout << " at " << v;
            EXPECT_EQ(slope, stamp[0][0]) << vout << " at " << v;
        }
    }
}

TEST(CircuitTableComponents, UseInputCurrentOnlyWhenExactlyOne) {
    for (const char* text : {"0", "true"}) {
        auto ctx = std::make_shared<MNAContext>();
        auto* amp = build<LookupTableAmp>(ctx, {"in", "out"},
                                          {{"VinMin", "0"}, {"VinMax", "1"}, {"DeltaV", "1"}, {"UseInputCurrent", text}});
        EXPECT_FALSE(amp->isNonlinear()) << text;
        EXPECT_EQ("propertyChanged: Invalid property name: Iin. LookupTableAmp name=t",
                  messageOf([&] { amp->propertyChanged("Iin", vec({1, 2})); }));
        amp->propertyChanged("Vout", vec({1, 2}));
        ctx->init();
        float x[2] = {0.5f, 0};
        EXPECT_EQ(0.0f, amp->getRhs(x)[0]);
    }
    auto ctx = std::make_shared<MNAContext>();
    EXPECT_EQ("LookupTableAmp cannot have a grounded node. LookupTableAmp name=t",
              messageOf([&] { build<LookupTableAmp>(ctx, {"in", "GND"}, {{"VinMin", "0"}}); }));
    EXPECT_EQ("LookupTableAmp, name=t, must have 3 nodes.",
              messageOf([&] { build<LookupTableAmp>(ctx, {"in", "o"}, {{"UseFeedback", "true"}}); }));
    EXPECT_EQ("DeltaV must be greater than 0. LookupTableAmp name=t",
              messageOf([&] { build<LookupTableAmp>(ctx, {"a", "b"}, {{"VinMin", "0"}, {"VinMax", "1"}, {"DeltaV", "0"}}); }));
}

TEST(CircuitTableComponents, SourceAdmittanceFollowsItsTableWithAThreshold) {
    auto ctx = std::make_shared<MNAContext>();
    auto* s = build<SourceAdmittance>(ctx, {"v", "o"},
                                      {{"Resistance", "10"}, {"VinMin", "0"}, {"VinMax", "4"}, {"DeltaV", "1"},
                                       {"Threshold", "0.1"}, {"out", "1|2|3|4|5"}});
    ctx->init();
    EXPECT_FLOAT_EQ(1e-15f, s->getAdmittance());  // starts nearly open, whatever Resistance says
    DenseVector x(2);
    x << 2.5f, 0;
    ctx->setSolution(x);
    s->nextSample();
    EXPECT_FLOAT_EQ(3.5f, s->getAdmittance());
    EXPECT_TRUE(ctx->matrixChanged());
    ctx->setMatrixChanged(false);
    x << 2.65f, 0;  // 3.65 is within 10 percent of 3.5: nothing happens
    ctx->setSolution(x);
    s->nextSample();
    EXPECT_FLOAT_EQ(3.5f, s->getAdmittance());
    EXPECT_FALSE(ctx->matrixChanged());
    EXPECT_EQ("propertyChanged: Invalid property name: in. SourceAdmittance name=t",
              messageOf([&] { s->propertyChanged("in", vec({1})); }));

    // With its first node at ground it follows 0 V (entry 2 of a table from -2 V).
    auto grounded = std::make_shared<MNAContext>();
    auto* g = build<SourceAdmittance>(grounded, {"GND", "o"},
                                      {{"VinMin", "-2"}, {"VinMax", "2"}, {"DeltaV", "1"}, {"Threshold", "0"},
                                       {"out", "1|2|3|4|5"}});
    grounded->init();
    DenseVector y(1);
    y << 7.0f;
    grounded->setSolution(y);
    g->nextSample();
    EXPECT_FLOAT_EQ(3.0f, g->getAdmittance());
}

// With UseFeedback the third node subtracts from the input: Vout = 0.5 (g - fb), and with
// g = in / 2 and fb = out / 2 the output settles at in / 5. The circuit reads an rhs entry
// and a stamp row for every node, the feedback node's included.
TEST(CircuitTableComponents, LookupTableAmpWithFeedbackSolvesInACircuit) {
    const std::string newton = "<Solver Type=\"NewtonRaphson\"><Properties RelativeTollerance=\"1e-6\" "
                               "AbsoluteTollerance=\"1e-6\" MaxIterations=\"50\"/></Solver>";
    for (const char* current : {"0", "1"}) {
        const std::string graph =
            "<Graph Name=\"C\" Type=\"MNA\"><NumberOfInputs>1</NumberOfInputs>"
            "<Inputs><Input Graph=\"System\" Node=\"0\"/></Inputs>" +
            element("VoltageInputSource", "input", "InputNumber=\"0\"", {"in", "GND"}) +
            element("Resistor", "R1", "Resistance=\"1000\"", {"in", "g"}) +
            element("Resistor", "R2", "Resistance=\"1000\"", {"g", "GND"}) +
            element("LookupTableAmp", "A",
                    std::string("VinMin=\"-2\" VinMax=\"2\" DeltaV=\"1\" UseFeedback=\"true\" UseInputCurrent=\"") +
                        current + "\" Vout=\"-1|-0.5|0|0.5|1\" Iin=\"0|0|0|0|0\"",
                    {"g", "out", "fb"}) +
            element("Resistor", "R3", "Resistance=\"1000\"", {"out", "fb"}) +
            element("Resistor", "R4", "Resistance=\"1000\"", {"fb", "GND"}) +
            "<Output><Node Name=\"out\"/></Output><Analysis Type=\"AC\"><InitialCondition Type=\"Zero\">" + newton +
            "</InitialCondition>" + newton + "</Analysis></Graph>";
        auto d = makeDriver(systemDoc(graph, "<Output Graph=\"C\" Node=\"out\"/>"), 48000, 16);
        std::vector<float> in(16, 0.8f);
        d->process({in.data()}, in.size());
        EXPECT_NEAR(0.16f, d->getResults()[0][15], 1e-5f) << "UseInputCurrent=" << current;
    }
}
