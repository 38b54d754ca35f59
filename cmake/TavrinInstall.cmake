# Install rules and the CMake config package of tavrin.
#
# Installs libtavrin with its public headers (include/tavrin), the stand-in
# platform libraries it links (zelk_utils, zelk, phoxi_api) with their headers
# (include/tavrin/platform), and lib/cmake/tavrin with the exported targets,
# a version file and the OpenCV core finder, so that an application does
#   find_package(tavrin CONFIG REQUIRED)
#   target_link_libraries(app PRIVATE tavrin::tavrin)
include(CMakePackageConfigHelpers)

set(TAVRIN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tavrin)
set(TAVRIN_PLATFORM_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/tavrin/platform)

# Installed libraries find each other next to themselves, wherever the tree is
# unpacked.
set_target_properties(tavrin zelk_utils zelk phoxi_api PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS tavrin zelk_utils zelk phoxi_api
  EXPORT tavrinTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavrin DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
foreach(platform_include utils/include zelk/include phoxi/include)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/${platform_include}/ DESTINATION ${TAVRIN_PLATFORM_INCLUDE_DIR}
    FILES_MATCHING PATTERN "*.h")
endforeach()

install(EXPORT tavrinTargets NAMESPACE tavrin:: DESTINATION ${TAVRIN_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tavrinConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tavrinConfig.cmake
  INSTALL_DESTINATION ${TAVRIN_CMAKE_DIR})
# 0.x releases may break the interface between minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tavrinConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/tavrinConfig.cmake
  ${PROJECT_BINARY_DIR}/tavrinConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/FindOpenCVCore.cmake
  DESTINATION ${TAVRIN_CMAKE_DIR})
