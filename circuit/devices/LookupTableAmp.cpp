#include "circuit/devices/LookupTableAmp.h"

#include <algorithm>

#include "circuit/MNAContext.h"
#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"
#include "math/TableIndex.h"

namespace kelm {

LookupTableAmp::LookupTableAmp()
    : jacobian(2, 2),
      vout(std::make_shared<ScalarVector>()),
      iin(std::make_shared<ScalarVector>()),
      iinDerivative(std::make_shared<ScalarVector>()) {}

void LookupTableAmp::init(const std::string& name, const PropertyMapPtr& properties, const NodeNames& names,
                          const std::shared_ptr<MNAContext>& ctx) {
    initBase(name, names, ctx);
    const PropertyMap& p = *properties;
    p.readOptional("UseFeedback", useFeedback);
    const int count = useFeedback ? 3 : 2;
    if (nodeCount() != count)
        throw InvalidArgumentException(str("LookupTableAmp, name=", name, ", must have ", count, " nodes."));
    jacobian.resize(count, count);
    for (const std::string& n : *nodeNames)
        if (isGround(n))
            throw InvalidArgumentException("LookupTableAmp cannot have a grounded node. LookupTableAmp name=" + name);
    fixedVoltageNode = (*nodeNames)[1];
    layout = PortLayout();
    layout.addPort(0, -1);
    if (useFeedback) layout.addPort(2, -1);
    layout.addForced(1);
    p.readRequired("VinMin", vinMin, KELMException("VinMin is not defined. LookupTableAmp name=" + name));
    p.readRequired("VinMax", vinMax, KELMException("VinMax is not defined. LookupTableAmp name=" + name));
    p.readRequired("DeltaV", deltaV, KELMException("DeltaV is not defined. LookupTableAmp name=" + name));
    if (!(deltaV > 0)) throw InvalidArgumentException("DeltaV must be greater than 0. LookupTableAmp name=" + name);
    if (!(vinMax > vinMin))
        throw InvalidArgumentException("VinMax must be greater than VinMin. LookupTableAmp name=" + name);
    inverseDelta = 1.0f / deltaV;
    int use = 1;
    if (p.readOptional("UseInputCurrent", use)) useInputCurrent = use == 1;
    const double room = (static_cast<double>(vinMax) - vinMin) * inverseDelta + 5;
    if (room < 1 << 20) {  // room for tables of the usual size
        vout->reserve(static_cast<size_t>(room));
        iin->reserve(static_cast<size_t>(room));
    }
    readTables(p);
}

void LookupTableAmp::readTables(const PropertyMap& p) {
    ScalarVectorPtr v;
    if (p.readOptional("Vout", v)) setVout(v);
    if (useInputCurrent && p.readOptional("Iin", v)) setIin(v);
}

void LookupTableAmp::propertiesChanged(const PropertyMapPtr& properties) { readTables(*properties); }

void LookupTableAmp::setVout(const ScalarVectorPtr& v) {
    if (!v || v->empty()) throw InvalidArgumentException("LookupTableAmp: empty Vout values array. ");
    if (!vout->empty() && v->size() != vout->size())
        throw InvalidArgumentException(str("LookupTableAmp: size of Vout (", v->size(),
                                           ") is not equal to the size of values (", vout->size(), ")"));
    vout = v;
    viewTables();
}

void LookupTableAmp::setIin(const ScalarVectorPtr& v) {
    if (!v || v->empty()) throw InvalidArgumentException("LookupTableAmp: empty Iin values array. ");
    if (!iin->empty() && v->size() != iin->size())
        throw InvalidArgumentException(str("LookupTableAmp: size of Iin (", v->size(),
                                           ") is not equal to the size of values (", iin->size(), ")"));
    iin = v;
    rebuildDerivative();
}

void LookupTableAmp::rebuildDerivative() {
    const ScalarVector& I = *iin;
    const size_t n = I.size();
    auto d = std::make_shared<ScalarVector>(n, 0.0f);
    if (n >= 2) {
        (*d)[0] = (I[1] - I[0]) * inverseDelta;
        for (size_t i = 1; i + 1 < n; ++i) (*d)[i] = (I[i + 1] - I[i - 1]) * inverseDelta * 0.5f;
        (*d)[n - 1] = (I[n - 1] - I[n - 2]) * inverseDelta;
    }
    iinDerivative = d;
    viewTables();
}

void LookupTableAmp::viewTables() {
    const size_t n = vout->size();
    const bool alike = useInputCurrent && n >= 2 && iin->size() == n && iinDerivative->size() == n;
    cells = alike ? static_cast<int>(n) : 0;
    voutData = vout->data();
    iinData = iin->data();
    slopeData = iinDerivative->data();
}

void LookupTableAmp::setNodes(const NodeIndices& n) {
    Component::setNodes(n);
    inputRow = (*n)[0];
    feedbackRow = useFeedback ? (*n)[2] : 0;
}

void LookupTableAmp::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name == "Vout")
        setVout(value);
    else if (name == "Iin" && useInputCurrent)
        setIin(value);
    else
        throw InvalidArgumentException("propertyChanged: Invalid property name: " + name + ". LookupTableAmp name=" +
                                       elementName);
}

scalar LookupTableAmp::interpolate(const ScalarVector& t, scalar v, int i) const {
    const int size = static_cast<int>(t.size());
    if (size == 0) return 0.0f;
    if (i < 1) return t[0];
    if (i < size - 1) return lerp(t.data(), i, v - i * deltaV);
    return t[size - 1];
}

scalar* LookupTableAmp::getRhs(scalar* x) {
    const scalar v = inputVoltage(x);
    const int last = static_cast<int>(vout->size()) - 1;
    const int i = tableIndex(v * inverseDelta, -1, std::max(last, 0));
    if (i >= last) {
        rhs[0] = useInputCurrent && !iin->empty() ? -iin->back() : 0.0f;
        rhs[1] = vout->empty() ? 0.0f : vout->back();
    } else {
        rhs[0] = useInputCurrent ? -interpolate(*iin, v, i) : 0.0f;
        rhs[1] = interpolate(*vout, v, i);
    }
    return rhs;
}

scalar** LookupTableAmp::getJacobian(scalar* x) {
    const scalar v = inputVoltage(x);
    const int i = tableIndex(v * inverseDelta, -1, std::max(static_cast<int>(iinDerivative->size()) - 1, 0));
    jacobian(0, 0) = interpolate(*iinDerivative, v, i);
    return jacobian.rows();
}

LookupTableAmp::Port LookupTableAmp::portAt(scalar v) {
    const int size = cells;
    if (size == 0) {
        // Tables of different lengths: each looked up on its own, as getRhs and getJacobian do.
        const int last = static_cast<int>(vout->size()) - 1;
        const int i = tableIndex(v * inverseDelta, -1, std::max(last, 0));
        Port p{0.0f, 0.0f, 0.0f, 0.0f};
        if (i >= last) {
            p.current = useInputCurrent && !iin->empty() ? -iin->back() : 0.0f;
            p.output = vout->empty() ? 0.0f : vout->back();
        } else {
            p.current = useInputCurrent ? -interpolate(*iin, v, i) : 0.0f;
            p.output = interpolate(*vout, v, i);
            if (i >= 1) p.outputSlope = ((*vout)[i + 1] - (*vout)[i]) * inverseDelta;
        }
        if (useInputCurrent) {
            const int j = tableIndex(v * inverseDelta, -1, std::max(static_cast<int>(iinDerivative->size()) - 1, 0));
            p.slope = interpolate(*iinDerivative, v, j);
        }
        return p;
    }
    // With tables of one length, the rhs and the slope share the grid cell.
    const int i = tableIndex(v * inverseDelta, -1, size - 1);
    const scalar* I = iinData;
    const scalar* V = voutData;
    const scalar* dI = slopeData;
    if (i >= size - 1) return {-I[size - 1], dI[size - 1], V[size - 1], 0.0f};
    if (i < 1) return {-I[0], dI[0], V[0], 0.0f};
    // interpolate()'s arithmetic, the offset into the cell taken once.
    const scalar offset = v - i * deltaV;
    return {-lerp(I, i, offset), lerp(dI, i, offset), lerp(V, i, offset), (V[i + 1] - V[i]) * inverseDelta};
}

void LookupTableAmp::evaluatePorts(double* v, double* i, double* di, double* f, double* df) {
    scalar in = static_cast<scalar>(v[0]) - vinMin;
    if (useFeedback) in -= static_cast<scalar>(v[1]);
    const Port p = portAt(in);
    // The rhs entry is minus the current that the input draws.
    i[0] = -static_cast<double>(p.current);
    di[0] = p.slope;
    f[0] = p.output;
    df[0] = p.outputSlope;
    if (useFeedback) {
        i[1] = 0;
        di[1] = -static_cast<double>(p.slope);
        di[2] = 0;
        di[3] = 0;
        df[1] = -static_cast<double>(p.outputSlope);
    }
}

scalar* LookupTableAmp::evaluate(scalar* x, scalar**& stamp) {
    const Port p = evaluatePort(x);
    rhs[0] = p.current;
    rhs[1] = p.output;
    jacobian(0, 0) = p.slope;
    stamp = jacobian.rows();
    return rhs;
}

} // namespace kelm
