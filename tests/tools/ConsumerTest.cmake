# Installs a build tree into a fresh prefix, builds the consumer project
# against it and runs it. Arguments (-D): BUILD_DIR, CONSUMER_SOURCE, WORK_DIR,
# GENERATOR, CXX_COMPILER, BUILD_TYPE, SANITIZE (the sanitizers the tree was
# built with; the consumer then uses the same runtime).
foreach(variable BUILD_DIR CONSUMER_SOURCE WORK_DIR GENERATOR CXX_COMPILER)
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

set(sanitize_flags)
if(SANITIZE)
  set(sanitize_flags "-DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZE}" "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE}")
endif()
run("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${WORK_DIR}/build -G ${GENERATOR} ${sanitize_flags}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    -DCMAKE_PREFIX_PATH=${prefix} -DTAVRIN_EXPECTED_PREFIX=${prefix}
    -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON)
run("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run("run consumer" ${WORK_DIR}/build/tavrin_consumer ${WORK_DIR})
message(STATUS "${last_output}")
file(REMOVE_RECURSE ${WORK_DIR})
