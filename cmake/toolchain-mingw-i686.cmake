# Cross-compiles for 32-bit Windows with Debian's mingw-w64.
set(CMAKE_SYSTEM_PROCESSOR x86)
set(KELM_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)
# SSE maths: the MXCSR then governs every float operation (flush-to-zero), and the
# rounding matches the 64-bit build instead of the x87's extended precision.
set(CMAKE_C_FLAGS_INIT "-msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse")
