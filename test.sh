#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: a release build with the
# Windows DLLs run under wine, then the Linux tests under AddressSanitizer and
# UndefinedBehaviorSanitizer, and the threaded ones under ThreadSanitizer. ctest runs a
# test per core; the 32-bit wine runs, which take one core for minutes where they are
# emulated, run beside the stages that follow them. The references that ngspice and scipy
# compute are computed anew and compared with the stored ones (ctest label Reference).
# The user's plug-in folders, ~/.vst, ~/.lv2 and ~/.clap, are left as they were: no build here copies
# into them (./run.sh does), and the run fails if anything in them has changed.
set -euo pipefail
cd "$(dirname "$0")"
started=$SECONDS
stage() { echo "== $1 ($(( (SECONDS - started) / 60 )) min $(( (SECONDS - started) % 60 )) s in)"; }
userPlugins() {
  local d
  for d in "$HOME/.vst" "$HOME/.lv2" "$HOME/.clap"; do
    [ -e "$d" ] || continue
    (cd "$d" && find . -printf '%y %p %l\n' | LC_ALL=C sort && find . -type f -print0 | LC_ALL=C sort -z |
      xargs -0 -r sha256sum) | sed "s|^|$d: |"
  done
}
pluginsBefore=$(userPlugins)

stage "installing what is missing"
scripts/install-deps.sh --tests
stage "building"
scripts/build.sh build -DKELM_INSTALL_USER_VST=OFF -DKELM_INSTALL_USER_LV2=OFF -DKELM_INSTALL_USER_CLAP=OFF
# The Windows DLLs and test programs; ctest then runs them under wine (tests Windows*).
scripts/build-windows.sh

# The test list is read from kelm_tests when ctest first starts after a build: once here, so
# that the two ctest runs below do not both write it at the same time (each then appends its
# own copy, and tests run twice).
(cd build && ctest -N > /dev/null)
stage "the Windows32 tests, in the background"
w32log="build/Windows32.log"
# In a process group of its own, so that a failing stage can stop it with all its children.
setsid -w sh -c "cd build && exec ctest --output-on-failure -R '^(Clap)?Windows32\$'" > "$w32log" 2>&1 &
w32=$!
trap 'kill -- -$w32 2>/dev/null || true' EXIT
stage "the release tests"
(cd build && ctest --output-on-failure -j"$(nproc)" -E '^(Clap)?Windows32$')
# The plug-in in Ardour 7, headless, then its LV2 window in Ardour's GUI under Xvfb; then each
# fuzz target for a minute (clang, libFuzzer).
stage "Ardour"
scripts/ardour-test.sh build
scripts/ardour-gui-test.sh build
stage "fuzzing"
scripts/fuzz.sh 60
# The sanitizer builds at -O1 with line tables only: they compile in 60 % of the time of
# -O2 -g, and their reports still name file and line.
sanitized=(-DKELM_BUILD_BENCH=OFF -DKELM_INSTALL_USER_VST=OFF -DKELM_INSTALL_USER_LV2=OFF -DKELM_INSTALL_USER_CLAP=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo
           "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG")
stage "AddressSanitizer and UndefinedBehaviorSanitizer"
scripts/build.sh build-asan -DKELM_SANITIZE=ON "${sanitized[@]}"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j"$(nproc)" -E Windows -LE Reference)
# The threads: controls written while blocks run, under ThreadSanitizer.
stage "ThreadSanitizer"
scripts/build.sh build-tsan -DKELM_TSAN=ON "${sanitized[@]}"
(cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -R Threads)

stage "waiting for the Windows32 tests"
w32status=0
wait $w32 || w32status=$?
trap - EXIT
cat "$w32log"
if [ "$(userPlugins)" != "$pluginsBefore" ]; then
  echo "the test run changed what ~/.vst, ~/.lv2 or ~/.clap holds:" >&2
  diff <(echo "$pluginsBefore") <(userPlugins) >&2 || true
  exit 1
fi
stage "done"
exit $w32status
