#include "dsp/LookupTableFilter.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "engine/InvalidArgumentException.h"
#include "engine/Str.h"
#include "math/TableIndex.h"

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
    valuesAt(in, out, n);
}

void LookupTableFilter::valuesAt(const scalar* in, scalar* out, size_t n) const {
    const scalar* t = table->data();
    const int size = static_cast<int>(table->size());
    size_t i = 0;
#if defined(__SSE2__)
    // Four samples at a time: the arithmetic and the choice between the flat ends and the
    // interpolation in the lanes of a register, with the same operations as curve(); only
    // the table loads are scalar.
    if (size >= 2) {
        const __m128 vmin = _mm_set1_ps(vinMin), inverse = _mm_set1_ps(inverseDeltaV), step = _mm_set1_ps(deltaV);
        const __m128 below = _mm_set1_ps(flatBelow), above = _mm_set1_ps(flatAbove);
        const __m128 firstValue = _mm_set1_ps(t[0]), lastValue = _mm_set1_ps(t[size - 1]);
        const __m128 all = _mm_castsi128_ps(_mm_set1_epi32(-1));
        const __m128i zero = _mm_setzero_si128();
        for (; i + 4 <= n; i += 4) {
            const __m128 d = _mm_sub_ps(_mm_loadu_ps(in + i), vmin);
            const __m128 position = _mm_mul_ps(inverse, d);
            // The cases of curve() in its order. Below the flat start (NaN too) the first
            // entry, from the flat end on the last. Between the two the position lies in
            // [0, size - 1), since the flat start is at least 0 and the flat end at most
            // size - 1, so that the grid's own clamps never apply there; cell 0 still
            // gives the first entry.
            const __m128 low = _mm_cmpnge_ps(position, below);
            const __m128 high = _mm_andnot_ps(low, _mm_cmpge_ps(position, above));
            const __m128 rest = _mm_andnot_ps(_mm_or_ps(low, high), all);
            const __m128i cell = _mm_and_si128(_mm_cvttps_epi32(position), _mm_castps_si128(rest));
            const __m128 inside = _mm_castsi128_ps(_mm_cmpgt_epi32(cell, zero));
            // Cells of the lanes that interpolate; 0 elsewhere, which is a valid cell.
            alignas(16) int k[4];
            _mm_store_si128(reinterpret_cast<__m128i*>(k), cell);
            // Each cell's two entries in one 8-byte load, then sorted into y0 and y1.
            auto entries = [t](int c) { return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(t + c))); };
            const __m128 cells01 = _mm_unpacklo_ps(entries(k[0]), entries(k[1]));
            const __m128 cells23 = _mm_unpacklo_ps(entries(k[2]), entries(k[3]));
            const __m128 y0 = _mm_movelh_ps(cells01, cells23);
            const __m128 y1 = _mm_movehl_ps(cells23, cells01);
            const __m128 offset = _mm_sub_ps(d, _mm_mul_ps(_mm_cvtepi32_ps(cell), step));
            const __m128 line = _mm_add_ps(y0, _mm_mul_ps(_mm_mul_ps(_mm_sub_ps(y1, y0), offset), inverse));
            const __m128 same = _mm_cmpeq_ps(y0, y1);
            const __m128 between = _mm_or_ps(_mm_and_ps(same, y0), _mm_andnot_ps(same, line));
            const __m128 flat = _mm_or_ps(_mm_and_ps(high, lastValue), _mm_andnot_ps(high, firstValue));
            _mm_storeu_ps(out + i, _mm_or_ps(_mm_and_ps(inside, between), _mm_andnot_ps(inside, flat)));
        }
    }
#endif
    for (; i < n; ++i) out[i] = curve(t, size, in[i]);
}

ScalarVector& LookupTableFilter::iterate(const ScalarVectorPtr& inputs, int, int) {
    iterationResults[0] = process((*inputs)[0]);
    return iterationResults;
}

void LookupTableFilter::endIteration(int frame) {
    if (buffer && frame < maxBlockSize) buffer[frame] = iterationResults[0];
}

} // namespace kelm
