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

# Private code works below the public classes: a file of
# StatisticsAnalyst/detail/ may include the plain records the public classes
# share (*Information.h, ZoWeightRecords.h, ZoRecordsetPtr.h) but never a
# public class, so following an analysis never leads back up.
file(GLOB_RECURSE private ${ROOT}/StatisticsAnalyst/detail/*.h ${ROOT}/StatisticsAnalyst/detail/*.cpp)
set(upward "")
foreach(file ${private})
  file(STRINGS ${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"StatisticsAnalyst/[A-Za-z]+\\.h\"")
  foreach(line ${includes})
    if(NOT line MATCHES "Information\\.h\"|ZoWeightRecords\\.h\"|ZoRecordsetPtr\\.h\"|Export\\.h\"")
      file(RELATIVE_PATH name ${ROOT} ${file})
      list(APPEND upward "${name}: ${line}")
    endif()
  endforeach()
endforeach()
if(upward)
  list(JOIN upward "\n  " text)
  message(FATAL_ERROR "private code includes a public class:\n  ${text}")
endif()
list(LENGTH private count)
message(STATUS "StatisticsAnalyst/detail/: ${count} files, none includes a public class")
