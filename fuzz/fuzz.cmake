# Fuzz targets. With KELM_FUZZ (clang, the whole tree compiled with
# -fsanitize=fuzzer-no-link,address,undefined by scripts/fuzz.sh) they link libFuzzer;
# otherwise each gets a plain main that replays the kept inputs under tests/fuzz/, for ctest.
option(KELM_FUZZ "Link the fuzz targets with libFuzzer" OFF)
set(KELM_FUZZ_TARGETS system wave cli netlist circuit)
set(KELM_FUZZ_SOURCE_system ${CMAKE_SOURCE_DIR}/fuzz/SystemFuzz.cpp)
set(KELM_FUZZ_SOURCE_wave ${CMAKE_SOURCE_DIR}/fuzz/WaveFuzz.cpp)
set(KELM_FUZZ_SOURCE_netlist ${CMAKE_SOURCE_DIR}/fuzz/NetlistFuzz.cpp)
set(KELM_FUZZ_SOURCE_circuit ${CMAKE_SOURCE_DIR}/fuzz/CircuitStateFuzz.cpp)
# The command-line parser with the tool's other parts it names (formats, plot kinds).
set(KELM_FUZZ_CLI_SOURCES ${KELM_CLI_SOURCES})
list(FILTER KELM_FUZZ_CLI_SOURCES EXCLUDE REGEX "/cli/Main\\.cpp$")
set(KELM_FUZZ_SOURCE_cli ${CMAKE_SOURCE_DIR}/fuzz/CommandLineFuzz.cpp ${KELM_FUZZ_CLI_SOURCES}
    $<TARGET_OBJECTS:kelm_resources>)
foreach(t ${KELM_FUZZ_TARGETS})
  if(KELM_FUZZ)
    add_executable(kelm_fuzz_${t} ${KELM_FUZZ_SOURCE_${t}})
    target_link_options(kelm_fuzz_${t} PRIVATE -fsanitize=fuzzer)
  else()
    add_executable(kelm_fuzz_${t} ${KELM_FUZZ_SOURCE_${t}} ${CMAKE_SOURCE_DIR}/fuzz/RegressionMain.cpp)
    add_test(NAME Fuzz_${t} COMMAND kelm_fuzz_${t} ${CMAKE_SOURCE_DIR}/tests/fuzz/${t})
  endif()
  target_link_libraries(kelm_fuzz_${t} PRIVATE kelm_plugin_core)
endforeach()
target_link_libraries(kelm_fuzz_cli PRIVATE kelm_builtin PkgConfig::SNDFILE PkgConfig::CAIRO)
target_link_libraries(kelm_fuzz_netlist PRIVATE kelm_netlist)
