#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: a release build, then the
# same tests under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh
scripts/build.sh build
(cd build && ctest --output-on-failure)
scripts/build.sh build-asan -DKELM_SANITIZE=ON -DKELM_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure)
