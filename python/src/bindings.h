#pragma once
// What the topic files of the Python module share: the Bind* entry points
// called by module.cpp, and the argument mapping between Python values and
// the library's (matrices, choices, array views).
//
// Every function here runs with the GIL held unless it says otherwise.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <tavrin/ColorOutput.h>

#include <glm/glm.hpp>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace zelk {
class Scan;
}

namespace tavrin_python {

namespace py = pybind11;

// One per topic file; each adds its classes and functions to `m`.
void BindErrors(py::module_& m);
void BindRecords(py::module_& m);
void BindAcceptance(py::module_& m);
void BindScan(py::module_& m);
void BindFrames(py::module_& m);
void BindFiles(py::module_& m);
void BindDevice(py::module_& m);
void BindSim(py::module_& m);

// --- matrices: NumPy arrays in the usual mathematical layout (row, column),
// so that `m @ p` is what glm computes as `m * p` (glm stores columns). Copies.
py::array_t<float> ToArray(const glm::mat3& m);
py::array_t<float> ToArray(const glm::mat4& m);
py::array_t<float> ToArray(const glm::vec3& v);
// ValueError unless `value` converts to a 4 x 4 (3 x 3, 3-vector) array of numbers.
glm::mat4 ToMat4(const py::handle& value);
glm::mat3 ToMat3(const py::handle& value);
glm::vec3 ToVec3(const py::handle& value);

// --- array views over memory owned by `owner` (a Python object that keeps
// that memory alive and unchanged in size: a Scan, Frame or PhoPointCloud).
// The array's base is `owner`; no copy. `data` may be null only when the
// shape holds no element (an empty array is made then).
py::array View(const py::handle& owner, const py::dtype& dtype, std::vector<py::ssize_t> shape,
               std::vector<py::ssize_t> strides, const void* data, bool writeable);

// --- choices given either as the bound enumeration or as one of its names
// (lower case, as the README lists them). TypeError for another type,
// ValueError for an unknown name.
template <class E>
E Choose(const py::handle& value, std::initializer_list<std::pair<const char*, E>> names, const char* what) {
  if (py::isinstance<py::str>(value)) {
    const std::string text = value.cast<std::string>();
    std::string known;
    for (const auto& name : names) {
      if (text == name.first) return name.second;
      known += (known.empty() ? "" : ", ") + std::string("'") + name.first + "'";
    }
    throw py::value_error(std::string(what) + " must be one of " + known + ", not '" + text + "'");
  }
  if (!py::isinstance(value, py::type::of<E>())) {
    throw py::type_error(std::string(what) + " must be a string or " +
                         py::str(py::type::of<E>().attr("__qualname__")).cast<std::string>());
  }
  return value.cast<E>();
}

// The texture of a point cloud, PLY file or frame made from `scan`: a
// ColorOutput or "none", "intensity", "color", or "auto": the scan's colours
// when it has them, else its intensities, else none (the tool's default).
tavrin::ColorOutput ChooseTexture(const py::handle& value, const zelk::Scan& scan);

}  // namespace tavrin_python
