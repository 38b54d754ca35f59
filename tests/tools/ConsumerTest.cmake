# Installs a build tree into a fresh prefix, builds the consumer project
# against it and runs it, together with the tour of the library taken from
# README.md as it stands. Arguments (-D): BUILD_DIR, CONSUMER_SOURCE, README,
# WORK_DIR, GENERATOR, CXX_COMPILER, BUILD_TYPE, SANITIZE (the sanitizers the
# tree was built with; the consumer then uses the same runtime).
foreach(variable BUILD_DIR CONSUMER_SOURCE README WORK_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "ConsumerTest.cmake needs -D${variable}=...")
  endif()
endforeach()
if(NOT BUILD_TYPE)
  set(BUILD_TYPE Release)
endif()

function(run step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${step} failed (${result}):\n${output}")
  endif()
  message(STATUS "${step}: ok")
  set(last_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(expected include/tavrin/tavrin.h include/tavrin/platform/zelk/Scan.h include/tavrin/platform/PhoXi.h
                 include/tavrin/platform/ulog/ulog.h)
  if(NOT EXISTS ${prefix}/${expected})
    message(FATAL_ERROR "install is missing ${expected}")
  endif()
endforeach()
file(GLOB_RECURSE configs ${prefix}/*/tavrinConfig.cmake ${prefix}/*/tavrinConfigVersion.cmake
     ${prefix}/*/FindOpenCVCore.cmake)
list(LENGTH configs config_count)
if(NOT config_count EQUAL 3)
  message(FATAL_ERROR "install is missing parts of the CMake package: ${configs}")
endif()

# The first C++ block after the tour's heading.
file(READ ${README} readme)
string(FIND "${readme}" "## A tour of the library" tour_at)
if(tour_at EQUAL -1)
  message(FATAL_ERROR "README.md has no \"A tour of the library\" section")
endif()
string(SUBSTRING "${readme}" ${tour_at} -1 tour)
string(FIND "${tour}" "```cpp\n" code_at)
if(code_at EQUAL -1)
  message(FATAL_ERROR "the tour has no C++ block")
endif()
math(EXPR code_at "${code_at} + 7")
string(SUBSTRING "${tour}" ${code_at} -1 tour)
string(FIND "${tour}" "```" code_end)
string(SUBSTRING "${tour}" 0 ${code_end} tour)
file(WRITE ${WORK_DIR}/tour.cpp "${tour}")

set(sanitize_flags)
if(SANITIZE)
  set(sanitize_flags "-DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZE}" "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE}")
endif()
run("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${WORK_DIR}/build -G ${GENERATOR} ${sanitize_flags}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    -DCMAKE_PREFIX_PATH=${prefix} -DTAVRIN_EXPECTED_PREFIX=${prefix} -DTOUR_SOURCE=${WORK_DIR}/tour.cpp
    -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON)
run("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run("run consumer" ${WORK_DIR}/build/tavrin_consumer ${WORK_DIR})
message(STATUS "${last_output}")
# The tour writes its files into the working directory.
file(MAKE_DIRECTORY ${WORK_DIR}/tour-run)
execute_process(COMMAND ${WORK_DIR}/build/tavrin_tour WORKING_DIRECTORY ${WORK_DIR}/tour-run
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the README's tour failed (${result}):\n${output}")
endif()
message(STATUS "run the README's tour: ok\n${output}")
file(REMOVE_RECURSE ${WORK_DIR})
