# What both mingw-w64 toolchain files share; they set KELM_MINGW_TRIPLET first.
# Debian's posix thread model: with GCC 12 only it has std::thread and std::mutex.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${KELM_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KELM_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KELM_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KELM_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
