# Builds the floor probes of tests/floors: every MUST_BUILD target compiles,
# and every MUST_FAIL target fails on its include of the matching HEADERS
# entry (a failure for any other reason does not count).
# Usage: cmake -DBUILD_DIR=... -DMUST_BUILD=a;b -DMUST_FAIL=c;d -DHEADERS=h1;h2 -P CheckFloors.cmake
function(build target result_var output_var)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD_DIR} --target ${target}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  set(${result_var} ${result} PARENT_SCOPE)
  set(${output_var} "${output}" PARENT_SCOPE)
endfunction()

set(failures 0)
foreach(target ${MUST_BUILD})
  build(${target} result output)
  if(NOT result EQUAL 0)
    message(SEND_ERROR "${target} should compile:\n${output}")
    math(EXPR failures "${failures} + 1")
  endif()
endforeach()

list(LENGTH MUST_FAIL count)
math(EXPR last "${count} - 1")
foreach(i RANGE 0 ${last})
  list(GET MUST_FAIL ${i} target)
  list(GET HEADERS ${i} header)
  build(${target} result output)
  string(FIND "${output}" "${header}" mentioned)
  if(result EQUAL 0 OR mentioned EQUAL -1 OR NOT output MATCHES "No such file|not found")
    message(SEND_ERROR "${target}: including ${header} must fail as a missing header, but:\n${output}")
    math(EXPR failures "${failures} + 1")
  else()
    message(STATUS "${target}: ${header} is out of reach")
  endif()
endforeach()
if(failures GREATER 0)
  message(FATAL_ERROR "${failures} floor probe(s) wrong")
endif()
