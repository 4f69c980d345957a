# The LV2 plug-in: bundle kelm.lv2 with the shared object (exporting lv2_descriptor only,
# C++ runtime linked in) and its description, generated from the built-in document's
# controls by kelm_lv2ttl at build time.
# The bundle has a folder of its own, so that LV2_PATH can name it alone.
set(KELM_LV2_BUNDLE ${CMAKE_BINARY_DIR}/lv2/kelm.lv2)
add_executable(kelm_lv2ttl ${CMAKE_SOURCE_DIR}/plugin/lv2/ttlgen/Main.cpp)
target_link_libraries(kelm_lv2ttl PRIVATE kelm_plugin_core kelm_builtin)

# Each plug-in's shared object is the one shell (LV2Effect, LV2Entry) with its own description.
set(KELM_LV2_SHELL ${CMAKE_SOURCE_DIR}/plugin/lv2/LV2Effect.cpp ${CMAKE_SOURCE_DIR}/plugin/lv2/LV2Entry.cpp)
add_library(kelm_lv2 MODULE ${KELM_LV2_SHELL} ${CMAKE_SOURCE_DIR}/plugin/lv2/preamp/KelmLV2Main.cpp)
set_target_properties(kelm_lv2 PROPERTIES OUTPUT_NAME "kelm" PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${KELM_LV2_BUNDLE}
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(kelm_lv2 PRIVATE kelm_plugin_core kelm_builtin
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/plugin/lv2/exports.map)
if(NOT KELM_SANITIZE AND NOT KELM_TSAN)
  target_link_options(kelm_lv2 PRIVATE -Wl,--no-undefined -static-libstdc++)
endif()
# The windows: kelm_ui.so in the same bundle, the X11 UIs of the preamp and of Kelm Circuit on
# the editors every format shows (the GUI toolkit, and so X11, stay out of the plug-ins' own
# shared objects).
add_library(kelm_lv2_ui MODULE ${CMAKE_SOURCE_DIR}/plugin/lv2/ui/LV2Window.cpp
  ${CMAKE_SOURCE_DIR}/plugin/lv2/ui/KelmLV2UIMain.cpp $<TARGET_OBJECTS:kelm_resources>)
set_target_properties(kelm_lv2_ui PROPERTIES OUTPUT_NAME "kelm_ui" PREFIX "" LIBRARY_OUTPUT_DIRECTORY ${KELM_LV2_BUNDLE}
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(kelm_lv2_ui PRIVATE kelm_gui kelm_plugin_core kelm_builtin
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/plugin/lv2/ui/exports.map)
if(NOT KELM_SANITIZE AND NOT KELM_TSAN)
  target_link_options(kelm_lv2_ui PRIVATE -Wl,--no-undefined -static-libstdc++)
endif()
add_dependencies(kelm_lv2 kelm_lv2_ui)

# Kelm Circuit in the same bundle: its own shared object, described in circuit.ttl.
add_library(kelm_circuit_lv2 MODULE ${KELM_LV2_SHELL} ${CMAKE_SOURCE_DIR}/plugin/lv2/circuit/CircuitLV2Main.cpp)
set_target_properties(kelm_circuit_lv2 PROPERTIES OUTPUT_NAME "kelm-circuit" PREFIX "" LIBRARY_OUTPUT_DIRECTORY
  ${KELM_LV2_BUNDLE} CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(kelm_circuit_lv2 PRIVATE kelm_plugin_core
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/plugin/lv2/exports.map)
if(NOT KELM_SANITIZE AND NOT KELM_TSAN)
  target_link_options(kelm_circuit_lv2 PRIVATE -Wl,--no-undefined -static-libstdc++)
endif()
add_custom_command(TARGET kelm_lv2 POST_BUILD
  COMMAND kelm_lv2ttl ${KELM_LV2_BUNDLE} $<TARGET_FILE_NAME:kelm_lv2> $<TARGET_FILE_NAME:kelm_lv2_ui> $<TARGET_FILE_NAME:kelm_circuit_lv2>
  COMMENT "Describing the LV2 bundle")
add_dependencies(kelm_lv2 kelm_lv2ttl kelm_circuit_lv2)
# A changed generator describes the bundle anew.
set_property(TARGET kelm_lv2 APPEND PROPERTY LINK_DEPENDS $<TARGET_FILE:kelm_lv2ttl>)

install(DIRECTORY ${KELM_LV2_BUNDLE} DESTINATION lib/lv2)

target_compile_definitions(kelm_tests PRIVATE KELM_LV2_BUNDLE="${KELM_LV2_BUNDLE}")
# lilv (Debian's liblilv-dev) hosts Kelm Circuit in the state round-trip test.
pkg_check_modules(LILV IMPORTED_TARGET lilv-0)
if(LILV_FOUND)
  target_link_libraries(kelm_tests PRIVATE PkgConfig::LILV)
  target_compile_definitions(kelm_tests PRIVATE KELM_HAVE_LILV)
endif()
add_dependencies(kelm_tests kelm_lv2)
# The UI test reaches Kelm Circuit's window inside the UI it loaded from kelm_ui.so: the class is
# compiled into the tests too, for its type information (which the undefined-behaviour
# sanitizer's checks of casts ask for).
target_sources(kelm_tests PRIVATE ${CMAKE_SOURCE_DIR}/plugin/lv2/ui/LV2Window.cpp)
# The LV2 UI in a host's X11 window, on an Xvfb server started for the test.
add_test(NAME Lv2UiX11 COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh $<TARGET_FILE:kelm_tests>
  --gtest_filter=X11Lv2Ui*)
set_tests_properties(Lv2UiX11 PROPERTIES WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
# And in Debian's jalv, where it is installed; not from a sanitizer build, whose plug-ins no
# host without the sanitizer's runtime can load.
if(NOT KELM_SANITIZE AND NOT KELM_TSAN)
  add_test(NAME Lv2UiJalv COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh ${CMAKE_SOURCE_DIR}/tests/plugin/jalv-ui.sh
    ${CMAKE_BINARY_DIR}/lv2)
  set_tests_properties(Lv2UiJalv PROPERTIES WORKING_DIRECTORY ${CMAKE_BINARY_DIR} SKIP_RETURN_CODE 77)
endif()
