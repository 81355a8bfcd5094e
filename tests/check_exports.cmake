# Fails unless the library's dynamic symbol table defines exactly the eight
# functions of the C interface.
execute_process(COMMAND nm -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(found "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-f]* *[A-Za-z] " "" name "${line}")
  list(APPEND found "${name}")
endforeach()
list(SORT found)
set(expected DeInitializeNubexEngine GetNubexCategories GetNubexEngineVersion GetNubexResourcesDetails
  InitializeNubexEngine ReleaseNubexMemory ScanImage SetNubexResourceDirectory)
if(NOT "${found}" STREQUAL "${expected}")
  message(FATAL_ERROR "exported: ${found}\nexpected: ${expected}")
endif()
message(STATUS "exports: ${found}")
