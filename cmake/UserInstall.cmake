# Copies into the user's own plug-in folders, ~/.vst, ~/.lv2 and ~/.clap, where hosts find
# the plug-ins without root: only when asked, by building the target kelm_install_user (./run.sh
# does, after its release build) or by KELM_INSTALL_USER_VST / _LV2 / _CLAP (after every
# build). A sanitizer or fuzz build never copies: a host cannot load its plug-ins, and
# the user's own would be gone. `cmake --install` (lib/vst, lib/lv2 under the prefix) is apart.
option(KELM_INSTALL_USER_VST "Copy the plug-in to ~/.vst after each build" OFF)
option(KELM_INSTALL_USER_LV2 "Copy the LV2 bundle to ~/.lv2 after each build" OFF)
option(KELM_INSTALL_USER_CLAP "Copy Kelm.clap to ~/.clap after each build" OFF)
if(KELM_SANITIZE OR KELM_TSAN OR KELM_FUZZ)
  if(KELM_INSTALL_USER_VST OR KELM_INSTALL_USER_LV2 OR KELM_INSTALL_USER_CLAP)
    message(WARNING "A sanitizer or fuzz build copies nothing into ~/.vst, ~/.lv2 or ~/.clap")
  endif()
  return()
endif()
if(NOT DEFINED ENV{HOME})
  return()
endif()
set(KELM_USER_VST $ENV{HOME}/.vst)
set(KELM_USER_LV2 $ENV{HOME}/.lv2/kelm.lv2)
set(KELM_USER_CLAP $ENV{HOME}/.clap)
set(KELM_COPY_VST
  COMMAND ${CMAKE_COMMAND} -E make_directory ${KELM_USER_VST}
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:kelm_vst2> $<TARGET_FILE:kelm_circuit_vst2> ${KELM_USER_VST}/)
set(KELM_COPY_LV2
  COMMAND ${CMAKE_COMMAND} -E make_directory ${KELM_USER_LV2}
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${KELM_LV2_BUNDLE} ${KELM_USER_LV2})
set(KELM_COPY_CLAP
  COMMAND ${CMAKE_COMMAND} -E make_directory ${KELM_USER_CLAP}
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:kelm_clap> ${KELM_USER_CLAP}/)
add_custom_target(kelm_install_user ${KELM_COPY_VST} ${KELM_COPY_LV2} ${KELM_COPY_CLAP}
  DEPENDS kelm_vst2 kelm_circuit_vst2 kelm_lv2 kelm_clap
  COMMENT "Installing Kelm.so and KelmCircuit.so into ${KELM_USER_VST}, kelm.lv2 into ${KELM_USER_LV2}, Kelm.clap into ${KELM_USER_CLAP}")
if(KELM_INSTALL_USER_VST)
  add_custom_command(TARGET kelm_circuit_vst2 POST_BUILD ${KELM_COPY_VST} COMMENT "Installing Kelm.so and KelmCircuit.so into ${KELM_USER_VST}")
  add_dependencies(kelm_circuit_vst2 kelm_vst2)
endif()
if(KELM_INSTALL_USER_LV2)
  # After the bundle's description is written (kelm_lv2's own step before this one).
  add_custom_command(TARGET kelm_lv2 POST_BUILD ${KELM_COPY_LV2} COMMENT "Installing kelm.lv2 into ${KELM_USER_LV2}")
endif()
