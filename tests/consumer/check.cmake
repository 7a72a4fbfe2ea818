# Installs the build tree into a scratch prefix, checks what was installed,
# then configures, builds and runs the consumer project against it.
#   FORBIDDEN_INCLUDES: include folders of the dependencies ('|'-separated)
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
execute_process(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}"
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed")
endif()
string(REPLACE "|" ";" FORBIDDEN_INCLUDES "${FORBIDDEN_INCLUDES}")

# Only public headers are installed: nothing from a detail/ folder.
file(GLOB_RECURSE installed RELATIVE "${prefix}/include/zoc" "${prefix}/include/zoc/*")
if(NOT installed)
  message(FATAL_ERROR "no headers installed")
endif()
foreach(file IN LISTS installed)
  if(file MATCHES "(^|/)detail/")
    message(FATAL_ERROR "a private header was installed: ${file}")
  endif()
endforeach()

# No installed header names a GDAL type: the host classes keep them behind
# their Impl. The headers listed in SA_GDAL_TYPES_PENDING still do; the list
# goes away once their GDAL accessors have left the public interface.
set(SA_GDAL_TYPES_PENDING host/ZoDataSource.h host/ZoDatasetVector.h host/ZoPrjCoordSys.h)
foreach(file IN LISTS installed)
  if(NOT file MATCHES "\\.h$" OR file IN_LIST SA_GDAL_TYPES_PENDING)
    continue()
  endif()
  file(STRINGS "${prefix}/include/zoc/${file}" lines)
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "//.*" "" code "${line}")
    if(code MATCHES "(^|[^A-Za-z0-9_])(OGR|GDAL|CPL)[A-Z][A-Za-z]*")
      message(FATAL_ERROR "${file} names a GDAL type: ${line}")
    endif()
  endforeach()
endforeach()

# pkg-config hands consumers our include folder and library only.
file(GLOB pc_files "${prefix}/*/pkgconfig/StatisticsAnalyst.pc" "${prefix}/*/*/pkgconfig/StatisticsAnalyst.pc")
if(NOT pc_files)
  message(FATAL_ERROR "StatisticsAnalyst.pc was not installed")
endif()
file(STRINGS "${pc_files}" cflags REGEX "^Cflags:")
file(STRINGS "${pc_files}" libs REGEX "^Libs:")
if(NOT cflags STREQUAL "Cflags: -I\${includedir}" OR NOT libs STREQUAL "Libs: -L\${libdir} -lStatisticsAnalyst")
  message(FATAL_ERROR "StatisticsAnalyst.pc hands consumers more than the library: ${cflags} ${libs}")
endif()
foreach(dir IN LISTS FORBIDDEN_INCLUDES)
  file(STRINGS "${pc_files}" named REGEX "${dir}")
  if(named)
    message(FATAL_ERROR "StatisticsAnalyst.pc names ${dir}")
  endif()
endforeach()

execute_process(COMMAND ${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build"
                        "-DCMAKE_PREFIX_PATH=${prefix}" "-DFORBIDDEN_INCLUDES=${FORBIDDEN_INCLUDES}"
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "configuring the consumer failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build "${WORK_DIR}/build" RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "building the consumer failed")
endif()
execute_process(COMMAND "${WORK_DIR}/build/consumer" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "the consumer failed")
endif()
file(REMOVE_RECURSE "${WORK_DIR}")
