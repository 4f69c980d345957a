# The editor in the Windows DLL (included by cmake/Windows.cmake before the DLL is
# defined): the toolkit's portable sources with its Win32 window, the system
# libraries they call, and stb's PNG decoder seen through a folder holding only
# that header (never /usr/include itself, whose glibc headers would clash).
file(GLOB KELM_GUI_WIN32_SOURCES CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/plugin/gui/*.cpp
  ${CMAKE_SOURCE_DIR}/plugin/gui/win32/*.cpp
  ${CMAKE_SOURCE_DIR}/plugin/editor/*.cpp)
list(APPEND KELM_WIN32_PLUGIN_SOURCES ${KELM_GUI_WIN32_SOURCES})
list(APPEND KELM_WIN32_PLUGIN_LIBRARIES user32 gdi32 shell32)
set(KELM_WIN_STB_INCLUDE ${CMAKE_BINARY_DIR}/include-stb)
file(MAKE_DIRECTORY ${KELM_WIN_STB_INCLUDE})
if(NOT EXISTS ${KELM_WIN_STB_INCLUDE}/stb_image.h)
  file(CREATE_LINK /usr/include/stb/stb_image.h ${KELM_WIN_STB_INCLUDE}/stb_image.h SYMBOLIC)
endif()
set_source_files_properties(${CMAKE_SOURCE_DIR}/plugin/gui/CBitmap.cpp PROPERTIES INCLUDE_DIRECTORIES ${KELM_WIN_STB_INCLUDE})

# A host window that opens the editor under wine (tests/windows/editor/run.sh).
add_executable(kelm_win_editor_host ${CMAKE_SOURCE_DIR}/tests/windows/editor/EditorHost.cpp)
set_target_properties(kelm_win_editor_host PROPERTIES OUTPUT_NAME "EditorHost")
target_include_directories(kelm_win_editor_host PRIVATE ${CMAKE_SOURCE_DIR})
target_link_libraries(kelm_win_editor_host PRIVATE user32 gdi32)
target_link_options(kelm_win_editor_host PRIVATE ${KELM_WIN_STATIC_LINK})
