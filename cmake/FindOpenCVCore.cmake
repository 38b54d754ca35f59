# Debian ships OpenCV's CMake package only with the full libopencv-dev; the
# library needs the core module alone (plus imgproc/imgcodecs for the tool),
# so find them directly.
find_path(OpenCVCore_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
find_library(OpenCVCore_LIBRARY NAMES opencv_core)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCVCore REQUIRED_VARS OpenCVCore_LIBRARY OpenCVCore_INCLUDE_DIR)
if(OpenCVCore_FOUND AND NOT TARGET opencv::core)
  add_library(opencv::core UNKNOWN IMPORTED)
  set_target_properties(opencv::core PROPERTIES
    IMPORTED_LOCATION ${OpenCVCore_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${OpenCVCore_INCLUDE_DIR})
endif()
foreach(module imgproc imgcodecs)
  find_library(OpenCV_${module}_LIBRARY NAMES opencv_${module})
  if(OpenCV_${module}_LIBRARY AND NOT TARGET opencv::${module})
    add_library(opencv::${module} UNKNOWN IMPORTED)
    set_target_properties(opencv::${module} PROPERTIES
      IMPORTED_LOCATION ${OpenCV_${module}_LIBRARY}
      INTERFACE_LINK_LIBRARIES opencv::core)
  endif()
endforeach()
