#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: a release build with the
# Windows DLLs run under wine, then the Linux tests under AddressSanitizer and
# UndefinedBehaviorSanitizer. ctest runs a test per core: the emulated 32-bit wine
# runs take one core for minutes.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh
scripts/build.sh build
# The Windows DLLs and test programs; ctest then runs them under wine (tests Windows*).
scripts/build-windows.sh
(cd build && ctest --output-on-failure -j"$(nproc)")
# The plug-in in Ardour 7, headless; then each fuzz target for a minute (clang, libFuzzer).
scripts/ardour-test.sh build
scripts/fuzz.sh 60
scripts/build.sh build-asan -DKELM_SANITIZE=ON -DKELM_BUILD_BENCH=OFF -DKELM_INSTALL_USER_VST=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j"$(nproc)" -E Windows)
# The threads: controls written while blocks run, under ThreadSanitizer.
scripts/build.sh build-tsan -DKELM_TSAN=ON -DKELM_BUILD_BENCH=OFF -DKELM_INSTALL_USER_VST=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
(cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -R Threads)
