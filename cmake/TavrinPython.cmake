# Finds what the Python bindings (python/) need: an interpreter with its
# headers, pybind11 and NumPy. Sets TAVRIN_PYTHON_FOUND; quiet when missing.
#
# The interpreter defaults to Debian's /usr/bin/python3: its NumPy, pytest and
# Open3D are the ones scripts/install-deps installs, while a pyenv or virtual
# environment python that comes first on PATH has none of them (and a module
# built for it would not load in Debian's). Pass -DPython_EXECUTABLE=... (or
# PYTHON_EXECUTABLE) to choose another one.
set(TAVRIN_PYTHON_FOUND OFF)
if(NOT Python_EXECUTABLE AND PYTHON_EXECUTABLE)
  set(Python_EXECUTABLE ${PYTHON_EXECUTABLE} CACHE FILEPATH "Python interpreter of the bindings")
endif()
if(NOT Python_EXECUTABLE AND EXISTS /usr/bin/python3)
  set(Python_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Python interpreter of the bindings")
endif()
find_package(Python 3.8 QUIET COMPONENTS Interpreter Development.Module OPTIONAL_COMPONENTS Development.Embed)
if(Python_FOUND)
  find_package(pybind11 2.6 CONFIG QUIET)
endif()
if(Python_FOUND AND pybind11_FOUND)
  execute_process(COMMAND ${Python_EXECUTABLE} -c "import numpy"
    RESULT_VARIABLE numpy_missing OUTPUT_QUIET ERROR_QUIET)
  if(numpy_missing EQUAL 0)
    set(TAVRIN_PYTHON_FOUND ON)
  endif()
endif()
