# The engine's layers, one static library per folder. Each links only the layers below
# it (math, engine, dsp, circuit with its devices, netlist beside them on the engine alone,
# solvers, then the plug-ins' shared effect core), so a source that calls into a layer
# above fails to link.
#
# KELM_DSP_PLATFORM_SOURCES replaces dsp/ResourceRegistry.cpp where a platform reads its
# resources otherwise (Windows: from the module's resource section).
function(kelm_layer name)
  cmake_parse_arguments(L "" "" "DIRS;DEPS;EXCLUDE;EXTRA" ${ARGN})
  set(globs)
  foreach(d ${L_DIRS})
    list(APPEND globs ${CMAKE_SOURCE_DIR}/${d}/*.cpp)
  endforeach()
  file(GLOB sources CONFIGURE_DEPENDS ${globs})
  foreach(x ${L_EXCLUDE})
    list(REMOVE_ITEM sources ${CMAKE_SOURCE_DIR}/${x})
  endforeach()
  add_library(${name} STATIC ${sources} ${L_EXTRA})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${L_DEPS})
endfunction()

if(DEFINED KELM_DSP_PLATFORM_SOURCES)
  set(kelm_dsp_exclude dsp/ResourceRegistry.cpp)
endif()
kelm_layer(kelm_math DIRS math DEPS ${KELM_EIGEN})
kelm_layer(kelm_engine DIRS engine DEPS kelm_math ${KELM_BOOST} ${KELM_PUGIXML})
kelm_layer(kelm_dsp DIRS dsp DEPS kelm_engine EXCLUDE ${kelm_dsp_exclude} EXTRA ${KELM_DSP_PLATFORM_SOURCES})
# The FFT's complex products need no care for infinities and NaNs: without this,
# each one may call into the run-time library, and the transforms run six times slower.
set_source_files_properties(${CMAKE_SOURCE_DIR}/dsp/RealFft.cpp PROPERTIES COMPILE_OPTIONS
  $<$<CXX_COMPILER_ID:GNU>:-fcx-limited-range>)
kelm_layer(kelm_circuit DIRS circuit circuit/devices DEPS kelm_engine)
# SPICE netlists read into system descriptions (text only: it builds no circuit).
kelm_layer(kelm_netlist DIRS netlist DEPS kelm_engine)
kelm_layer(kelm_solvers DIRS solvers DEPS kelm_circuit kelm_dsp)
# The example documents compiled into the effect core (Kelm Circuit's built-in list).
set(KELM_EXAMPLES_CPP ${CMAKE_BINARY_DIR}/generated/Examples.cpp)
file(GLOB KELM_EXAMPLE_FILES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/examples/*.xml ${CMAKE_SOURCE_DIR}/examples/*.cir
  ${CMAKE_SOURCE_DIR}/examples/*.net)
add_custom_command(OUTPUT ${KELM_EXAMPLES_CPP}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/generated
  COMMAND ${CMAKE_COMMAND} -DEXAMPLES_DIR=${CMAKE_SOURCE_DIR}/examples -DOUTPUT=${KELM_EXAMPLES_CPP}
          -P ${CMAKE_SOURCE_DIR}/cmake/embed_examples.cmake
  DEPENDS ${KELM_EXAMPLE_FILES} ${CMAKE_SOURCE_DIR}/cmake/embed_examples.cmake
  COMMENT "Embedding the example documents")
kelm_layer(kelm_plugin_core DIRS plugin/core DEPS kelm_solvers kelm_netlist EXTRA ${KELM_EXAMPLES_CPP})
target_include_directories(kelm_plugin_core PUBLIC ${CMAKE_BINARY_DIR}/generated)
