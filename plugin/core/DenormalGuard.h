#pragma once
// Flush-to-zero and denormals-are-zero for the engine's float work, through the SSE
// control and status register (MXCSR). 32-bit x86 builds need SSE maths (-msse2
// -mfpmath=sse) for this to cover every float operation.
#if defined(__SSE__) || defined(_M_X64) || defined(_M_IX86)
#include <xmmintrin.h>
#define KELM_HAVE_MXCSR 1
#endif

namespace kelm {

// Saves the MXCSR and sets flush-to-zero (0x8000) and denormals-are-zero (0x40);
// restore() puts the saved word back. A no-op on processors without it.
class DenormalGuard {
public:
#ifdef KELM_HAVE_MXCSR
    DenormalGuard() : saved(_mm_getcsr()) { _mm_setcsr(saved | 0x8040); }
    void restore() { _mm_setcsr(saved); }

private:
    unsigned saved;
#else
    void restore() {}
#endif
};

} // namespace kelm
