# Writes a resource script that compiles every file of a resources folder into the
# module's resource section under type = the file's folder name and name = its file
# name (the same names the embedded registry of other platforms uses; *.py files are
# the tools that made the data and are left out).
# Run as: cmake -DRESOURCE_DIR=... -DOUTPUT=... -P embed_rc.cmake
file(GLOB_RECURSE files RELATIVE ${RESOURCE_DIR} ${RESOURCE_DIR}/*/*)
set(body "// Generated from ${RESOURCE_DIR}. Do not edit.\n")
foreach(f ${files})
  if(f MATCHES "\\.py$")
    continue()
  endif()
  get_filename_component(type ${f} DIRECTORY)
  get_filename_component(name ${f} NAME)
  if(name MATCHES "[\"\\\\]" OR type MATCHES "[\"\\\\ ]")
    message(FATAL_ERROR "resource ${f}: quotes and backslashes cannot be named in a resource script")
  endif()
  # A LANGUAGE statement between entries keeps windres from joining the file name
  # string of one entry with the quoted name of the next.
  string(APPEND body "LANGUAGE 9, 1\n\"${name}\" ${type} \"${RESOURCE_DIR}/${f}\"\n")
endforeach()
file(WRITE ${OUTPUT}.tmp "${body}")
file(RENAME ${OUTPUT}.tmp ${OUTPUT})
