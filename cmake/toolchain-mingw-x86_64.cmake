# Cross-compiles for 64-bit Windows with Debian's mingw-w64.
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(KELM_MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-mingw-common.cmake)
