# tavrin_add_floor(<target> FOLDER <dir under src> [EXCLUDE <dir>...]
#                  [HEADERS <public header under include/tavrin>...] [LINKS <target>...])
#
# One floor of the library: a static library of the sources under src/<dir>
# (without the EXCLUDE folders, which are floors of their own). Its include
# root, ${PROJECT_BINARY_DIR}/floors/<target>, holds links to src/<dir> (so
# sources include "<dir>/X.h") and to its public headers (<tavrin/X.h>); the
# root is PUBLIC, so the floors above see it and the floors below do not.
function(tavrin_add_floor target)
  cmake_parse_arguments(PARSE_ARGV 1 FLOOR "" "FOLDER" "EXCLUDE;HEADERS;LINKS")
  set(folder ${PROJECT_SOURCE_DIR}/src/${FLOOR_FOLDER})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  foreach(excluded ${FLOOR_EXCLUDE})
    list(FILTER sources EXCLUDE REGEX "^${PROJECT_SOURCE_DIR}/src/${excluded}/")
  endforeach()
  add_library(${target} STATIC ${sources})

  set(root ${PROJECT_BINARY_DIR}/floors/${target})
  file(REMOVE_RECURSE ${root})
  get_filename_component(parent ${root}/${FLOOR_FOLDER} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${folder} ${root}/${FLOOR_FOLDER} SYMBOLIC)
  foreach(header ${FLOOR_HEADERS})
    get_filename_component(parent ${root}/tavrin/${header} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/include/tavrin/${header} ${root}/tavrin/${header} SYMBOLIC)
  endforeach()

  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
  target_compile_definitions(${target} PUBLIC TAVRIN_BUILDING)
  target_link_libraries(${target} PUBLIC ${FLOOR_LINKS})
  tavrin_warnings(${target})
endfunction()
