# Cross-compiles for 32-bit Windows with Debian's mingw-w64 (posix thread model: std::thread
# and std::mutex exist only there with GCC 12).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)
set(KELM_MINGW_TRIPLET i686-w64-mingw32)
set(CMAKE_C_COMPILER ${KELM_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KELM_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KELM_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KELM_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# SSE maths: the MXCSR then governs every float operation (flush-to-zero), and the
# rounding matches the 64-bit build instead of the x87's extended precision.
set(CMAKE_C_FLAGS_INIT "-msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse")
