// tavrin.Scan: a zelk::Scan whose per-point arrays are NumPy views.
//
// Python never changes the number of points or the set of properties of a
// scan (every library call that fills one is given a new scan), so the
// arrays the scan hands out stay where they are for its whole life; a view
// keeps the scan alive through its base.
#include "bindings.h"

#include <tavrin/Spaces.h>

#include <zelk/Scan.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace tavrin_python {
namespace {

constexpr py::ssize_t kFloat = sizeof(float);

// N x 3 float32 over an array of three-float elements (glm::vec3, Color3f).
py::object Triples(const zelk::Scan& scan, const void* data, const py::handle& self) {
  static_assert(sizeof(glm::vec3) == 3 * sizeof(float) && sizeof(zelk::Color3f) == 3 * sizeof(float),
                "elements are three packed floats");
  const py::ssize_t n = scan.GetPointCount();
  return View(self, py::dtype::of<float>(), {n, 3}, {3 * kFloat, kFloat}, data, true);
}

std::string Repr(const zelk::Scan& scan) {
  const auto& space = scan.GetSpace();
  return "<tavrin.Scan " + std::to_string(scan.GetWidth()) + " x " + std::to_string(scan.GetHeight()) + ", " +
         std::to_string(scan.GetPointCount()) + " points, " + (space ? "'" + space->id + "'" : "no space") + ">";
}

py::array_t<float> ToGrid(const zelk::Scan& scan) {
  const py::ssize_t width = scan.GetWidth();
  const py::ssize_t height = scan.GetHeight();
  py::array_t<float> grid({height, width, py::ssize_t{3}});
  float* const out = grid.mutable_data();
  const py::gil_scoped_release release;
  std::fill(out, out + height * width * 3, std::numeric_limits<float>::quiet_NaN());
  const glm::vec3* positions = scan.GetPositions();
  const std::vector<glm::uvec2>& cells = scan.GetCoords();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    float* const cell = out + (static_cast<py::ssize_t>(cells[i].y) * width + cells[i].x) * 3;
    cell[0] = positions[i].x;
    cell[1] = positions[i].y;
    cell[2] = positions[i].z;
  }
  return grid;
}

}  // namespace

void BindScan(py::module_& m) {
  py::class_<zelk::Scan>(m, "Scan",
                         "An organised point cloud: each point sits in one cell (x column, y row) of the sensor grid.\n"
                         "positions, normals, colors, intensities and cells are NumPy arrays over the scan's own "
                         "memory (no copy; writes change the scan; each array keeps the scan alive). A scan is not "
                         "thread-safe: do not change it while another thread uses it.")
      .def(py::init<>(), "An empty scan (no points, no resolution).")
      .def("copy", [](const zelk::Scan& scan) { return std::make_unique<zelk::Scan>(scan); }, "A deep copy.")
      .def_property_readonly(
          "resolution", [](const zelk::Scan& s) { return py::make_tuple(s.GetWidth(), s.GetHeight()); },
          "(width, height) of the grid in pixels")
      .def_property_readonly("width", &zelk::Scan::GetWidth)
      .def_property_readonly("height", &zelk::Scan::GetHeight)
      .def_property_readonly("point_count", &zelk::Scan::GetPointCount)
      .def("__len__", &zelk::Scan::GetPointCount)
      .def_property(
          "space", [](const zelk::Scan& s) { return s.GetSpace(); },
          [](zelk::Scan& s, std::optional<utils::SpaceDefinition> space) { s.SetSpace(space); },
          "The SpaceDefinition the points are written in, or None; assign one to label the scan.")
      .def_property(
          "camera_params", [](const zelk::Scan& s) { return s.GetCameraParams(); },
          [](zelk::Scan& s, const zelk::ScanCameraParams& params) { s.SetCameraParams(params); },
          "CameraParams (a copy; assign to change)")
      .def_property(
          "camera_position", [](const zelk::Scan& s) { return ToArray(s.GetCameraPosition()); },
          [](zelk::Scan& s, const py::handle& value) { s.SetCameraPosition(ToVec3(value)); },
          "The camera's position in scan coordinates, float32[3] (a copy)")
      .def_property(
          "camera_basis", [](const zelk::Scan& s) { return ToArray(s.GetCameraBasis(tavrin::PhoXiCameraSpace)); },
          [](zelk::Scan& s, const py::handle& value) {
            s.SetCameraBasis(ToMat3(value), tavrin::PhoXiCameraSpace);
          },
          "3 x 3 float32: columns are the camera's x, y, z axes in scan coordinates, meant in the PhoXi camera "
          "convention (a copy)")
      .def_property(
          "timestamp", [](const zelk::Scan& s) { return s.GetTimestamp(); },
          [](zelk::Scan& s, std::optional<double> timestamp) { s.SetTimestamp(timestamp); },
          "Capture time as the frame gave it, or None")
      .def_property_readonly(
          "positions",
          [](py::object self) {
            zelk::Scan& scan = self.cast<zelk::Scan&>();
            return Triples(scan, scan.GetPositions(), self);
          },
          "N x 3 float32 view of the point positions (the scan's unit, usually mm)")
      .def_property_readonly(
          "normals",
          [](py::object self) -> py::object {
            zelk::Scan& scan = self.cast<zelk::Scan&>();
            if (!scan.HasNormals()) return py::none();
            return Triples(scan, scan.GetNormals(), self);
          },
          "N x 3 float32 view of the unit normals, or None")
      .def_property_readonly(
          "colors",
          [](py::object self) -> py::object {
            zelk::Scan& scan = self.cast<zelk::Scan&>();
            if (!scan.HasColors()) return py::none();
            return Triples(scan, scan.GetColors(), self);
          },
          "N x 3 float32 view of red, green, blue in 0..1, or None")
      .def_property_readonly(
          "intensities",
          [](py::object self) -> py::object {
            zelk::Scan& scan = self.cast<zelk::Scan&>();
            if (!scan.HasIntensities()) return py::none();
            const py::ssize_t n = scan.GetPointCount();
            return View(self, py::dtype::of<float>(), {n}, {kFloat}, scan.GetIntensities(), true);
          },
          "N float32 view of the intensities, or None")
      .def_property_readonly(
          "cells",
          [](py::object self) {
            const zelk::Scan& scan = self.cast<const zelk::Scan&>();
            static_assert(sizeof(glm::uvec2) == 2 * sizeof(std::uint32_t), "cells are two packed uint32");
            const py::ssize_t n = static_cast<py::ssize_t>(scan.GetCoords().size());
            const py::ssize_t u32 = sizeof(std::uint32_t);
            return View(self, py::dtype::of<std::uint32_t>(), {n, 2}, {2 * u32, u32},
                        n == 0 ? nullptr : scan.GetCoords().data(), false);
          },
          "N x 2 uint32 read-only view: the (x, y) cell of each point")
      .def(
          "_address",
          [](const zelk::Scan& scan, const std::string& name) -> std::uintptr_t {
            const void* data = name == "positions"     ? static_cast<const void*>(scan.GetPositions())
                               : name == "normals"     ? static_cast<const void*>(scan.GetNormals())
                               : name == "colors"      ? static_cast<const void*>(scan.GetColors())
                               : name == "intensities" ? static_cast<const void*>(scan.GetIntensities())
                               : name == "cells"       ? static_cast<const void*>(scan.GetCoords().data())
                                                       : throw py::value_error("no per-point array '" + name + "'");
            return reinterpret_cast<std::uintptr_t>(data);
          },
          py::arg("name"),
          "Diagnostics: the address of the scan's own storage of the array `name` (compare with an array's "
          "ctypes.data).")
      .def("to_grid", &ToGrid,
           "A new (height, width, 3) float32 array (a copy) with each point's position in its cell and NaN in "
           "the cells without a point.")
      .def("__repr__", &Repr);
}

}  // namespace tavrin_python
