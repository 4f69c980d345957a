# The editor and its GUI toolkit: a static library linked into the plug-in and the tests.
find_package(X11 REQUIRED)
find_path(KELM_STB_INCLUDE stb_image.h PATH_SUFFIXES stb REQUIRED)
file(GLOB KELM_GUI_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/plugin/gui/*.cpp
  ${CMAKE_SOURCE_DIR}/plugin/gui/x11/*.cpp
  ${CMAKE_SOURCE_DIR}/plugin/editor/*.cpp)
add_library(kelm_gui STATIC ${KELM_GUI_SOURCES})
target_include_directories(kelm_gui PUBLIC ${CMAKE_SOURCE_DIR})
target_include_directories(kelm_gui SYSTEM PRIVATE ${KELM_STB_INCLUDE})
target_link_libraries(kelm_gui PUBLIC kelm_plugin_core X11::X11 Threads::Threads)
set_target_properties(kelm_gui PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

target_link_libraries(kelm_vst2 PRIVATE kelm_gui)

# The tests build the effect with its editor in-process (off-screen) as well as
# loading the plug-in; the entry points stay out (their "main" would clash).
file(GLOB KELM_VST2_LAYER_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/plugin/vst2/*.cpp)
target_sources(kelm_tests PRIVATE ${KELM_VST2_LAYER_SOURCES} ${CMAKE_SOURCE_DIR}/plugin/vst2/preamp/KelmVST2Effect.cpp)
target_link_libraries(kelm_tests PRIVATE kelm_gui)

# The editor in a real X11 parent window, on an Xvfb server started for the test.
add_test(NAME EditorX11 COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh $<TARGET_FILE:kelm_tests>
  --gtest_filter=X11Editor*)
set_tests_properties(EditorX11 PROPERTIES WORKING_DIRECTORY ${CMAKE_BINARY_DIR})

# The Windows editor host is a Windows program; the test glob must not compile it here.
set_source_files_properties(${CMAKE_SOURCE_DIR}/tests/windows/editor/EditorHost.cpp PROPERTIES HEADER_FILE_ONLY ON)


# The editor of the 64-bit Windows DLL (scripts/build-windows.sh) under wine, driven
# like the X11 one, and its window compared with the Linux window's screenshot.
add_test(NAME Windows64Editor COMMAND ${CMAKE_SOURCE_DIR}/tests/plugin/with-xvfb.sh
  ${CMAKE_SOURCE_DIR}/tests/windows/editor/run.sh ${CMAKE_SOURCE_DIR}/build-win64
  ${CMAKE_BINARY_DIR}/editor-wine64.png ${CMAKE_BINARY_DIR}/editor-x11.png)
# One wine prefix at a time: the first program in a prefix starts its desktop process, and
# one started without a display (the DLL tests) leaves the editor's windows nowhere.
set_tests_properties(Windows64Editor PROPERTIES DEPENDS EditorX11 RESOURCE_LOCK wine64 SKIP_RETURN_CODE 77)
