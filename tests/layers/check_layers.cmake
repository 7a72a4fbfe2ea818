# The layers run one way: host/ is the engine's view below the statistics
# library and builds without it, so no file of host/ may include the
# library's headers. Run as: cmake -DROOT=<source dir> -P check_layers.cmake
file(GLOB_RECURSE files ${ROOT}/host/*.h ${ROOT}/host/*.cpp ${ROOT}/host/*.def)
set(offending "")
foreach(file ${files})
  file(STRINGS ${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*[\"<]StatisticsAnalyst/")
  if(includes)
    file(RELATIVE_PATH name ${ROOT} ${file})
    list(APPEND offending "${name}: ${includes}")
  endif()
endforeach()
if(offending)
  list(JOIN offending "\n  " text)
  message(FATAL_ERROR "host/ includes the statistics library:\n  ${text}")
endif()
list(LENGTH files count)
message(STATUS "host/: ${count} files, none includes the library")
