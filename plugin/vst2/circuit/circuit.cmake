# Kelm Circuit as a VST 2 plug-in: KelmCircuit.so (Linux) or KelmCircuit.dll (cmake/Windows.cmake),
# the VST 2 layer and the effect core with its window, exporting VSTPluginMain and main only.
file(GLOB KELM_VST2_LAYER_ONLY CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/plugin/vst2/*.cpp)
set(KELM_CIRCUIT_VST2_SOURCES ${KELM_VST2_LAYER_ONLY} ${CMAKE_SOURCE_DIR}/plugin/vst2/entry/VST2Entry.cpp
  ${CMAKE_SOURCE_DIR}/plugin/vst2/circuit/CircuitVST2Effect.cpp
  ${CMAKE_SOURCE_DIR}/plugin/vst2/circuit/CircuitVST2Main.cpp)

if(WIN32)
  add_library(kelm_circuit_vst2 MODULE ${KELM_CIRCUIT_VST2_SOURCES} ${KELM_WIN32_PLUGIN_SOURCES} ${KELM_RESOURCES_RC}
    ${CMAKE_SOURCE_DIR}/plugin/vst2/exports.def)
  set_target_properties(kelm_circuit_vst2 PROPERTIES OUTPUT_NAME "KelmCircuit" PREFIX "" SUFFIX ".dll")
  target_link_libraries(kelm_circuit_vst2 PRIVATE kelm_plugin_core ${KELM_WIN32_PLUGIN_LIBRARIES})
  target_link_options(kelm_circuit_vst2 PRIVATE ${KELM_WIN_STATIC_LINK} -Wl,--no-undefined)
  add_dependencies(kelm_circuit_vst2 kelm_resources_rc)
  return()
endif()

add_library(kelm_circuit_vst2 MODULE ${KELM_CIRCUIT_VST2_SOURCES} $<TARGET_OBJECTS:kelm_resources>)
set_target_properties(kelm_circuit_vst2 PROPERTIES OUTPUT_NAME "KelmCircuit" PREFIX "" CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(kelm_circuit_vst2 PRIVATE kelm_plugin_core kelm_gui
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/plugin/vst2/exports.map)
if(NOT KELM_SANITIZE AND NOT KELM_TSAN)
  target_link_options(kelm_circuit_vst2 PRIVATE -Wl,--no-undefined -static-libstdc++)
endif()
install(TARGETS kelm_circuit_vst2 LIBRARY DESTINATION lib/vst)

# The tests build the effect and its window in-process as well as loading the module.
target_sources(kelm_tests PRIVATE ${CMAKE_SOURCE_DIR}/plugin/vst2/circuit/CircuitVST2Effect.cpp)
target_compile_definitions(kelm_tests PRIVATE KELM_CIRCUIT_VST2_PATH="$<TARGET_FILE:kelm_circuit_vst2>")
add_dependencies(kelm_tests kelm_circuit_vst2)
# The window in a real X11 parent window, on an Xvfb server started for the test.
add_test(NAME KelmCircuitX11 COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh $<TARGET_FILE:kelm_tests>
  --gtest_filter=KelmCircuitX11*)
set_tests_properties(KelmCircuitX11 PROPERTIES WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
# The window of the 64-bit DLL (scripts/build-windows.sh) under wine: two examples picked
# from its list with xdotool, the system's file dialog opened and closed.
add_test(NAME KelmCircuitWindows64Editor COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh
  ${CMAKE_SOURCE_DIR}/tests/windows/editor/circuit.sh ${CMAKE_SOURCE_DIR}/build-win64 ${CMAKE_BINARY_DIR}/circuit-wine64)
set_tests_properties(KelmCircuitWindows64Editor PROPERTIES RESOURCE_LOCK wine64 SKIP_RETURN_CODE 77)
