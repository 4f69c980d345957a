# The CLAP plug-in Kelm.clap: every Kelm plug-in behind one factory, exporting clap_entry
# only, with the C++ runtime linked in. On Linux beside Kelm.so; on Windows (included by
# cmake/Windows.cmake after the VST 2 DLL) beside Kelm.dll, with the editor's Win32 sources.
file(GLOB KELM_CLAP_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/plugin/clap/*.cpp)
if(WIN32)
  add_library(kelm_clap MODULE ${KELM_CLAP_SOURCES} ${KELM_WIN32_PLUGIN_SOURCES} ${KELM_RESOURCES_RC}
    ${CMAKE_SOURCE_DIR}/plugin/clap/exports.def)
  set_target_properties(kelm_clap PROPERTIES OUTPUT_NAME "Kelm" PREFIX "" SUFFIX ".clap")
  target_link_libraries(kelm_clap PRIVATE kelm_plugin_core kelm_builtin ${KELM_WIN32_PLUGIN_LIBRARIES})
  target_link_options(kelm_clap PRIVATE ${KELM_WIN_STATIC_LINK} -Wl,--no-undefined)
  add_dependencies(kelm_clap kelm_resources_rc)
  # Our CLAP host as a Windows program (tests/windows/WindowsClapTest.cpp runs it under wine).
  add_executable(kelm_win_clap_host ${CMAKE_SOURCE_DIR}/tests/windows/host/KelmClapHost.cpp)
  set_target_properties(kelm_win_clap_host PROPERTIES OUTPUT_NAME "KelmClapHost")
  target_include_directories(kelm_win_clap_host PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_options(kelm_win_clap_host PRIVATE ${KELM_WIN_STATIC_LINK})
  return()
endif()

add_library(kelm_clap MODULE ${KELM_CLAP_SOURCES} $<TARGET_OBJECTS:kelm_resources>)
set_target_properties(kelm_clap PROPERTIES OUTPUT_NAME "Kelm" PREFIX "" SUFFIX ".clap" CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(kelm_clap PRIVATE kelm_gui kelm_plugin_core kelm_builtin
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/plugin/clap/exports.map)
set_property(TARGET kelm_clap APPEND PROPERTY LINK_DEPENDS ${CMAKE_SOURCE_DIR}/plugin/clap/exports.map)
if(NOT KELM_SANITIZE AND NOT KELM_TSAN)
  target_link_options(kelm_clap PRIVATE -Wl,--no-undefined -static-libstdc++)
endif()
install(TARGETS kelm_clap LIBRARY DESTINATION lib/clap)

# The tests load Kelm.clap as a host does, and run the adapter in-process over cores of
# their own.
target_sources(kelm_tests PRIVATE ${CMAKE_SOURCE_DIR}/plugin/clap/ClapPlugin.cpp)
target_compile_definitions(kelm_tests PRIVATE KELM_CLAP_PATH="$<TARGET_FILE:kelm_clap>")
add_dependencies(kelm_tests kelm_clap)
add_test(NAME ClapX11 COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh $<TARGET_FILE:kelm_tests>
  --gtest_filter=X11Clap*)
set_tests_properties(ClapX11 PROPERTIES WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
# Kelm.clap of the Windows builds (scripts/build-windows.sh) in our CLAP host under wine.
add_test(NAME ClapWindows64 COMMAND kelm_tests --gtest_filter=ClapWindows64/*)
set_tests_properties(ClapWindows64 PROPERTIES RESOURCE_LOCK wine64)
add_test(NAME ClapWindows32Binary COMMAND kelm_tests --gtest_filter=ClapWindows32/*Exports*)
add_test(NAME ClapWindows32 COMMAND ${CMAKE_SOURCE_DIR}/tests/windows/wine32-or-skip.sh
  $<TARGET_FILE:kelm_tests> --gtest_filter=ClapWindows32/*-*Exports*)
set_tests_properties(ClapWindows32 PROPERTIES SKIP_RETURN_CODE 77)
# Its window under wine, compared with the Linux window's screenshot (ClapX11 writes it).
add_test(NAME ClapWindows64Editor COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh
  ${CMAKE_SOURCE_DIR}/tests/windows/editor/clap.sh ${CMAKE_SOURCE_DIR}/build-win64
  ${CMAKE_BINARY_DIR}/clap-wine64.png ${CMAKE_BINARY_DIR}/clap-x11.png)
set_tests_properties(ClapWindows64Editor PROPERTIES DEPENDS ClapX11 RESOURCE_LOCK wine64 SKIP_RETURN_CODE 77)
