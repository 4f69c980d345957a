#include "circuit/devices/JunctionDevice.h"

#include <cmath>
#include <cstring>

#include "circuit/MNAContext.h"
#include "circuit/devices/Junction.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"

namespace kelm {

namespace {
// A series resistance below this (ohms) is taken as none: at the currents of these devices it
// drops microvolts, and its conductance would only stiffen the matrix.
constexpr double kNegligibleResistance = 1e-3;
} // namespace

void JunctionDevice::declare(const char* name, double& value, double fallback, Range range) {
    parameters.push_back({name, &value, fallback, range});
    value = fallback;
}

void JunctionDevice::check(const Parameter& p, double v) const {
    const bool ok = std::isfinite(v) && (p.range == any || (p.range == positive ? v > 0 : v >= 0));
    if (!ok)
        throw InvalidArgumentException(str("Invalid ", p.name, "=", v, ": it must be ",
                                           p.range == positive      ? "positive"
                                           : p.range == nonNegative ? "zero or positive"
                                                                    : "finite",
                                           ". ", elementName));
}

void JunctionDevice::readParameters(const PropertyMap& p) {
    for (const Parameter& q : parameters) {
        double v = q.fallback;
        p.readOptional(q.name, v);
        check(q, v);
        *q.value = v;
    }
    derive();
    tabulate(true);
}

void JunctionDevice::requireNodes(int count, const char* type, const char* order) {
    if (nodeCount() != count)
        throw InvalidArgumentException(str(type, " must have ", count, " nodes (", order, "), not ", nodeCount(),
                                           ". ", type, " name=", elementName));
}

bool JunctionDevice::readPolarity(const PropertyMap& p, const char* first, const char* second, bool fallback) {
    std::string polarity;
    if (!p.readOptional("Polarity", polarity)) return fallback;
    if (polarity == first) return false;
    if (polarity == second) return true;
    throw InvalidArgumentException("Unknown Polarity " + polarity + " (" + first + " or " + second + "). name=" +
                                   elementName);
}

int JunctionDevice::addSeries(int terminal, double& r, const char* suffix) {
    if (!(r >= kNegligibleResistance)) return terminal;
    const int inner = addInternalNode(suffix);
    series.push_back({terminal, inner, &r});
    return inner;
}

scalar** JunctionDevice::getG() {
    if (series.empty()) return nullptr;
    const int k = nodeCount();
    if (seriesStamp.rows() == nullptr) seriesStamp.resize(k, k);
    seriesStamp.zero();
    for (const Series& s : series) {
        // A resistance changed to nothing at run time keeps its node as a near short.
        const double r = *s.resistance >= kNegligibleResistance ? *s.resistance : kNegligibleResistance;
        const scalar g = static_cast<scalar>(1.0 / r);
        seriesStamp(s.outer, s.outer) += g;
        seriesStamp(s.inner, s.inner) += g;
        seriesStamp(s.outer, s.inner) -= g;
        seriesStamp(s.inner, s.outer) -= g;
    }
    return seriesStamp.rows();
}

void JunctionDevice::acceptPorts(const double* v) {
    double q[maxCharges];
    if (tableCountdown > 0 && --tableCountdown == 0) tabulate(true);
    charges(v, q);
    const double rate = stepRate();
    for (int k = 0; k < chargeCount; ++k) {
        if (fresh)
            charge[k].start(q[k]);
        else
            charge[k].accept(q[k], rate);
    }
    fresh = false;
}

void JunctionDevice::analysisChanged(AnalysisType oldType, AnalysisType newType) {
    // Leaving the operating point: the charges start at rest where it left them.
    if (oldType == AnalysisType::DC && newType == AnalysisType::AC) fresh = true;
}

void JunctionDevice::propertiesChanged(const PropertyMapPtr& properties) {
    // Values the new table does not give keep their present ones.
    for (const Parameter& q : parameters) {
        double v = *q.value;
        if (properties->readOptional(q.name, v)) check(q, v);
    }
    for (const Parameter& q : parameters) properties->readOptional(q.name, *q.value);
    changedWhilePlaying();
    invalidateEvaluation();
    context->setMatrixChanged(true);
}

void JunctionDevice::propertyChanged(const std::string& name, scalar value) {
    for (const Parameter& q : parameters) {
        if (name != q.name) continue;
        const double v = static_cast<double>(value);
        check(q, v);
        bool inSeries = false;
        for (const Series& s : series) inSeries = inSeries || s.resistance == q.value;
        if (inSeries) context->setMatrixChanged(true);
        if (!inSeries && v >= kNegligibleResistance)
            for (const char* r : {"Rs", "Rd", "Rb", "Rc", "Re"})
                if (std::strcmp(r, q.name) == 0)
                    throw InvalidArgumentException(str("propertyChanged: ", name,
                                                       " cannot become a resistance where the element has none. ",
                                                       elementName));
        *q.value = v;
        changedWhilePlaying();
        invalidateEvaluation();
        return;
    }
    throw InvalidArgumentException("propertyChanged: Invalid property: " + name + ". name=" + elementName);
}

void JunctionDevice::changedWhilePlaying() {
    derive();
    tabulate(false);
    tableCountdown = kTableSettle;
}

bool JunctionDevice::replaceNotFinite(double* i, double* di) const {
    const int P = layout.ports;
    bool finite = true;
    for (int p = 0; p < P; ++p) {
        if (!std::isfinite(i[p])) {
            i[p] = 0;
            finite = false;
        }
        for (int q = 0; q < P; ++q) {
            double& g = di[p * P + q];
            if (!std::isfinite(g)) {
                g = p == q ? Junction::gmin : 0;
                finite = false;
            }
        }
    }
    return finite;
}

} // namespace kelm
