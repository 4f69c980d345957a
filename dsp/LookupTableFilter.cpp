#include "dsp/LookupTableFilter.h"

#include <cstring>

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"
#include "engine/TableIndex.h"

namespace kelm {

void LookupTableFilter::readProperties(const PropertyMap& p) {
    if (p.empty()) return;
    p.readRequired("VinMin", vinMin, InvalidArgumentException("VinMin is not defined. LookupTableAmp name=" + elementName));
    p.readRequired("VinMax", vinMax, InvalidArgumentException("VinMax is not defined. LookupTableAmp name=" + elementName));
    p.readRequired("DeltaV", deltaV, InvalidArgumentException("DeltaV is not defined. LookupTableAmp name=" + elementName));
    if (!(deltaV > 0))
        throw InvalidArgumentException("DeltaV must be greater than 0. LookupTableAmp name=" + elementName);
    inverseDeltaV = 1.0f / deltaV;
    ScalarVectorPtr v;
    if (p.readOptional("Vout", v)) propertyChanged("Vout", v);
}

void LookupTableFilter::propertiesChanged(const PropertyMapPtr& properties) {
    const PropertyMap& p = *properties;
    p.readOptional("VinMin", vinMin);
    p.readOptional("VinMax", vinMax);
    if (p.readOptional("DeltaV", deltaV)) inverseDeltaV = 1.0f / deltaV;
    ScalarVectorPtr v;
    if (p.readOptional("Vout", v)) propertyChanged("Vout", v);
}

void LookupTableFilter::propertyChanged(const std::string& name, const ScalarVectorPtr& value) {
    if (name != "Vout") throw InvalidArgumentException("LookupTableFilter: Unknown property " + name);
    if (!value || value->empty()) throw InvalidArgumentException("LookupTableFiter: empty Vout values array. ");
    if (!table->empty() && value->size() != table->size())
        throw InvalidArgumentException(str("LookupTableFilter: size of Vout (", value->size(),
                                           ") is not equal to the size of values (", table->size(), " )"));
    table = value;
    findFlatEnds();
}

namespace {
bool sameBits(scalar a, scalar b) { return std::memcmp(&a, &b, sizeof a) == 0; }
} // namespace

void LookupTableFilter::findFlatEnds() {
    // Cells 0 .. k-1 give the first entry when entries 0 .. k are that entry: a position p
    // falls into cell trunc(p), and p < k means a cell below k. Likewise from cell j on,
    // when entries j .. n-1 are the last.
    const ScalarVector& t = *table;
    const int n = static_cast<int>(t.size());
    int k = 0;
    while (k + 1 < n && sameBits(t[k + 1], t[0])) ++k;
    int j = n - 1;
    while (j > 0 && sameBits(t[j - 1], t[n - 1])) --j;
    flatBelow = static_cast<scalar>(k);
    flatAbove = static_cast<scalar>(j);
}

scalar LookupTableFilter::process(scalar x) { return valueAt(x); }

void LookupTableFilter::process(const scalar* in, scalar* out, size_t n) {
    if (table->empty()) throw KELMException("LookupTableFilter: " + elementName + " lookup data is not defined.");
    if (!in || !out) return;
    const scalar* t = table->data();
    const int size = static_cast<int>(table->size());
    for (size_t i = 0; i < n; ++i) out[i] = curve(t, size, in[i]);
}

ScalarVector& LookupTableFilter::iterate(const ScalarVectorPtr& inputs, int, int) {
    iterationResults[0] = process((*inputs)[0]);
    return iterationResults;
}

void LookupTableFilter::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
