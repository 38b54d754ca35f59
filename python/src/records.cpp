// Plain records and the matrices and views every topic uses: space
// definitions and the predefined spaces, camera parameters and PhoXi
// calibration settings.
#include "bindings.h"

#include <tavrin/Calibration.h>
#include <tavrin/Spaces.h>

#include <utils/SpaceDefinition.h>
#include <zelk/ScanCameraParams.h>

#include <pybind11/stl.h>

#include <string>
#include <vector>

namespace tavrin_python {
namespace {

template <class Matrix>
py::array_t<float> MatrixToArray(const Matrix& m, py::ssize_t n) {
  py::array_t<float> array({n, n});
  auto out = array.mutable_unchecked<2>();
  for (py::ssize_t row = 0; row < n; ++row) {
    for (py::ssize_t column = 0; column < n; ++column) {
      out(row, column) = m[static_cast<glm::length_t>(column)][static_cast<glm::length_t>(row)];
    }
  }
  return array;
}

py::array_t<double> CameraMatrixToArray(const pho::api::CameraMatrix64f& m) {
  py::array_t<double> array({static_cast<py::ssize_t>(m.Size.Height), static_cast<py::ssize_t>(m.Size.Width)});
  auto out = array.mutable_unchecked<2>();
  for (int row = 0; row < m.Size.Height; ++row) {
    for (int column = 0; column < m.Size.Width; ++column) out(row, column) = m.At(row, column);
  }
  return array;
}

void SetCameraMatrix(pho::api::CameraMatrix64f& m, const py::handle& value) {
  const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(value);
  if (!array || array.ndim() != 2 || array.shape(0) != 3 || array.shape(1) != 3) {
    throw py::value_error("camera_matrix must be a 3 x 3 array");
  }
  m.Resize(pho::api::PhoXiSize(3, 3));
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) m.At(row, column) = array.at(row, column);
  }
}

std::string Repr(const utils::SpaceDefinition& space) {
  const py::object category = py::cast(space.category);
  const py::object units = py::cast(space.units);
  return "<tavrin.SpaceDefinition '" + space.id + "' " + py::str(category).cast<std::string>() + " " +
         py::str(units).cast<std::string>() + ">";
}

void BindEnums(py::module_& m) {
  py::enum_<utils::Axis>(m, "Axis", "A signed coordinate axis.")
      .value("POSITIVE_X", utils::Axis::PositiveX)
      .value("POSITIVE_Y", utils::Axis::PositiveY)
      .value("POSITIVE_Z", utils::Axis::PositiveZ)
      .value("NEGATIVE_X", utils::Axis::NegativeX)
      .value("NEGATIVE_Y", utils::Axis::NegativeY)
      .value("NEGATIVE_Z", utils::Axis::NegativeZ);
  py::enum_<utils::Handedness>(m, "Handedness")
      .value("LEFT", utils::Handedness::Left)
      .value("RIGHT", utils::Handedness::Right);
  py::enum_<utils::SpaceCategory>(m, "SpaceCategory")
      .value("CUSTOM", utils::SpaceCategory::Custom)
      .value("CAMERA", utils::SpaceCategory::Camera)
      .value("MARKER", utils::SpaceCategory::Marker);
  py::enum_<utils::Units>(m, "Units", "Length units.")
      .value("KILOMETERS", utils::Units::Kilometers)
      .value("METERS", utils::Units::Meters)
      .value("DECIMETERS", utils::Units::Decimeters)
      .value("CENTIMETERS", utils::Units::Centimeters)
      .value("MILLIMETERS", utils::Units::Millimeters)
      .value("MICROMETERS", utils::Units::Micrometers)
      .value("NANOMETERS", utils::Units::Nanometers)
      .value("MILES", utils::Units::Miles)
      .value("FEET", utils::Units::Feet)
      .value("INCHES", utils::Units::Inches);
}

void BindSpaces(py::module_& m) {
  using utils::BasisDefinition;
  using utils::SpaceDefinition;
  py::class_<SpaceDefinition>(m, "SpaceDefinition",
                              "A coordinate space: id, category, length unit, up and forward axes, handedness.")
      .def(py::init([](std::string id, utils::SpaceCategory category, utils::Units units, utils::Axis up,
                       utils::Axis forward, utils::Handedness handedness) {
             SpaceDefinition space;
             space.id = std::move(id);
             space.category = category;
             space.units = units;
             space.up = up;
             space.forward = forward;
             space.handedness = handedness;
             return space;
           }),
           py::arg("id") = "custom", py::arg("category") = utils::SpaceCategory::Custom,
           py::arg("units") = utils::Units::Millimeters, py::arg("up") = utils::Axis::PositiveY,
           py::arg("forward") = utils::Axis::PositiveZ, py::arg("handedness") = utils::Handedness::Right)
      .def_readwrite("id", &BasisDefinition::id)
      .def_readwrite("up", &BasisDefinition::up)
      .def_readwrite("forward", &BasisDefinition::forward)
      .def_readwrite("handedness", &BasisDefinition::handedness)
      .def_readwrite("category", &SpaceDefinition::category)
      .def_readwrite("units", &SpaceDefinition::units)
      .def(
          "correction_to", [](const SpaceDefinition& from, const SpaceDefinition& to) {
            return ToArray(from.GetSpaceCorrection(to));
          },
          py::arg("to"), "The 3 x 3 matrix carrying a point of this space into `to` (axes and unit); IndexError for "
                         "a unit without a table row.")
      .def("is_same_space", &utils::IsSameSpace, py::arg("other"), "Same units, category and axes (id ignored).")
      .def("__repr__", &Repr);

  m.attr("PHOXI_CAMERA") = tavrin::PhoXiCameraSpace;
  m.attr("PHOXI_MARKER") = tavrin::PhoXiMarkerSpace;
  m.attr("ZELK_CAMERA") = tavrin::ZelkCameraSpace;
  m.attr("ZELK_MARKER") = tavrin::ZelkMarkerSpace;
  m.attr("LOOK_AT") = tavrin::LookAtSpace;
  m.def(
      "space_correction",
      [](const SpaceDefinition& from, const SpaceDefinition& to) { return ToArray(from.GetSpaceCorrection(to)); },
      py::arg("from_space"), py::arg("to_space"),
      "3 x 3 float32 matrix M with M @ p carrying point p from `from_space` into `to_space`.");
}

void BindCalibration(py::module_& m) {
  py::class_<zelk::ScanCameraParams>(m, "CameraParams",
                                     "Camera model of a scan: pinhole intrinsics in pixels at the scan's resolution, "
                                     "radial k1..k3 and tangential p1, p2 distortion, a 4 x 4 transform.")
      .def(py::init<>())
      .def_readwrite("fx", &utils::IntrinsicParams::fx)
      .def_readwrite("fy", &utils::IntrinsicParams::fy)
      .def_readwrite("cx", &utils::IntrinsicParams::cx)
      .def_readwrite("cy", &utils::IntrinsicParams::cy)
      .def_readwrite("k1", &zelk::ScanCameraParams::k1)
      .def_readwrite("k2", &zelk::ScanCameraParams::k2)
      .def_readwrite("k3", &zelk::ScanCameraParams::k3)
      .def_readwrite("p1", &zelk::ScanCameraParams::p1)
      .def_readwrite("p2", &zelk::ScanCameraParams::p2)
      .def_property(
          "transform", [](const zelk::ScanCameraParams& p) { return ToArray(p.transform); },
          [](zelk::ScanCameraParams& p, const py::handle& value) { p.transform = ToMat4(value); },
          "4 x 4 float32 (a copy; assign a new one to change it)")
      .def("__repr__", [](const zelk::ScanCameraParams& p) {
        return "<tavrin.CameraParams fx=" + std::to_string(p.fx) + " fy=" + std::to_string(p.fy) +
               " cx=" + std::to_string(p.cx) + " cy=" + std::to_string(p.cy) + ">";
      });

  using Settings = pho::api::PhoXiCalibrationSettings;
  py::class_<Settings>(m, "CalibrationSettings", "A PhoXi device's calibration (double precision, OpenCV layout).")
      .def(py::init<>())
      .def_property(
          "camera_matrix", [](const Settings& s) { return CameraMatrixToArray(s.CameraMatrix); },
          [](Settings& s, const py::handle& value) { SetCameraMatrix(s.CameraMatrix, value); },
          "3 x 3 float64 (a copy)")
      .def_readwrite("distortion_coefficients", &Settings::DistortionCoefficients,
                     "list of float, OpenCV order k1, k2, p1, p2, k3, ...")
      .def_readwrite("focus_length", &Settings::FocusLength)
      .def_property(
          "pixel_size", [](const Settings& s) { return py::make_tuple(s.PixelSize.Width, s.PixelSize.Height); },
          [](Settings& s, const std::pair<double, double>& size) {
            s.PixelSize = pho::api::PhoXiSize_64f(size.first, size.second);
          },
          "(width, height) in micrometres");

  m.def(
      "camera_params",
      [](const Settings& settings) {
        // The conversion reads five coefficients without checking.
        if (settings.DistortionCoefficients.size() < 5) {
          throw py::value_error("calibration settings need at least five distortion coefficients");
        }
        return tavrin::GetCameraParams(settings);
      },
      py::arg("settings"), "PhoXi calibration to a scan's CameraParams (single precision).");
  m.def("calibration_settings", &tavrin::GetCalibrationSettings, py::arg("params"),
        "CameraParams to PhoXi calibration settings (3 x 3 matrix, 14 coefficients).");
}

}  // namespace

py::array_t<float> ToArray(const glm::mat3& m) { return MatrixToArray(m, 3); }
py::array_t<float> ToArray(const glm::mat4& m) { return MatrixToArray(m, 4); }

py::array_t<float> ToArray(const glm::vec3& v) {
  py::array_t<float> array(3);
  auto out = array.mutable_unchecked<1>();
  for (py::ssize_t i = 0; i < 3; ++i) out(i) = v[static_cast<glm::length_t>(i)];
  return array;
}

template <class Matrix>
Matrix ArrayToMatrix(const py::handle& value, py::ssize_t n, const char* expected) {
  const auto array = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(value);
  if (!array || array.ndim() != 2 || array.shape(0) != n || array.shape(1) != n) throw py::value_error(expected);
  Matrix m(1.0f);
  for (py::ssize_t row = 0; row < n; ++row) {
    for (py::ssize_t column = 0; column < n; ++column) {
      m[static_cast<glm::length_t>(column)][static_cast<glm::length_t>(row)] = array.at(row, column);
    }
  }
  return m;
}

glm::mat4 ToMat4(const py::handle& value) { return ArrayToMatrix<glm::mat4>(value, 4, "expected a 4 x 4 array"); }
glm::mat3 ToMat3(const py::handle& value) { return ArrayToMatrix<glm::mat3>(value, 3, "expected a 3 x 3 array"); }

glm::vec3 ToVec3(const py::handle& value) {
  const auto array = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(value);
  if (!array || array.ndim() != 1 || array.shape(0) != 3) throw py::value_error("expected 3 numbers");
  return glm::vec3(array.at(0), array.at(1), array.at(2));
}

py::array View(const py::handle& owner, const py::dtype& dtype, std::vector<py::ssize_t> shape,
               std::vector<py::ssize_t> strides, const void* data, bool writeable) {
  // With `owner` as its base, NumPy holds a reference to the owner for as long
  // as the array (or any view of it) lives: the memory stays valid.
  py::array array = data == nullptr ? py::array(dtype, std::move(shape), std::move(strides))
                                    : py::array(dtype, std::move(shape), std::move(strides), data, owner);
  if (!writeable) array.attr("setflags")(py::arg("write") = false);
  return array;
}

void BindRecords(py::module_& m) {
  BindEnums(m);
  BindSpaces(m);
  BindCalibration(m);
}

}  // namespace tavrin_python
