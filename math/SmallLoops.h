#pragma once

// Helpers for the short loops of the per-sample solves.

// Loops with bounds known to the compiler, unrolled whole, leave only the
// arithmetic: KELM_UNROLL before such a loop asks for that.
#if defined(__GNUC__) && !defined(__clang__)
#define KELM_UNROLL _Pragma("GCC unroll 36")
#else
#define KELM_UNROLL
#endif

namespace kelm {

// *p as a float of its own. Loops over a few floats that were just stored one by one
// are otherwise read by the compiler in wider loads, and a load that spans several
// pending stores waits until all of them have reached the cache, where a load of one
// of them takes its value straight from the store.
inline float loadAlone(const float* p) {
    float v = *p;
#if defined(__GNUC__) && defined(__SSE2__)
    __asm__("" : "+x"(v));
#endif
    return v;
}

} // namespace kelm
