// PhoXi frames and Photoneo PLY point clouds with their grids as NumPy views,
// and the conversions between them and scans.
#include "bindings.h"
#include "callables.h"
#include "errors.h"

#include <tavrin/Conversions.h>
#include <tavrin/pho_ply_io/PointCloud.h>

#include <PhoXi.h>

#include <pybind11/stl.h>

#include <memory>
#include <string>

namespace tavrin_python {
namespace {

using Frame = pho::api::Frame;
using Cloud = pho_ply_io::PointCloud;

// (height, width[, channels]) read-only view of a frame map. The frame may be
// shared with the device that captured it, hence read-only: copy to change.
template <class Map, class Component>
py::object MapView(const Map& map, int channels, const py::handle& self) {
  static_assert(sizeof(typename Map::ElementType) == sizeof(Component) * 3 ||
                    sizeof(typename Map::ElementType) == sizeof(Component),
                "map elements are packed components");
  if (map.Empty()) return py::none();
  const py::ssize_t component = sizeof(Component);
  const py::ssize_t element = sizeof(typename Map::ElementType);
  std::vector<py::ssize_t> shape{map.Size.Height, map.Size.Width};
  std::vector<py::ssize_t> strides{element * map.Size.Width, element};
  if (channels > 1) {
    shape.push_back(channels);
    strides.push_back(component);
  }
  return View(self, py::dtype::of<Component>(), shape, strides, map.GetDataPtr(), false);
}

// (rows, cols, channels) writable view of a cloud grid; `flat`: (rows, channels)
// for a single-column grid (the faces).
py::object MatView(const cv::Mat& mat, int type, const py::handle& self, bool flat = false) {
  if (mat.empty()) return py::none();
  if (mat.type() != type) throw py::type_error("unexpected grid type in a point cloud");
  const py::ssize_t rows = mat.rows;
  const py::ssize_t cols = mat.cols;
  const py::ssize_t channels = mat.channels();
  const py::ssize_t element = static_cast<py::ssize_t>(mat.elemSize());
  const py::ssize_t component = static_cast<py::ssize_t>(mat.elemSize1());
  const py::dtype dtype = mat.depth() == CV_8U    ? py::dtype::of<std::uint8_t>()
                          : mat.depth() == CV_32S ? py::dtype::of<std::int32_t>()
                                                  : py::dtype::of<float>();
  const py::ssize_t rowStep = static_cast<py::ssize_t>(mat.step[0]);
  if (flat && cols == 1) return View(self, dtype, {rows, channels}, {rowStep, component}, mat.data, true);
  return View(self, dtype, {rows, cols, channels}, {rowStep, element, component}, mat.data, true);
}

py::array_t<float> PointToArray(const pho::api::Point3_64f& p) {
  return ToArray(glm::vec3(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z)));
}

void BindFrame(py::module_& m) {
  py::class_<Frame, std::shared_ptr<Frame>>(
      m, "Frame",
      "A PhoXi frame: the device's maps over the sensor grid as read-only (height, width[, 3]) NumPy views "
      "(None for a map the frame lacks). A captured frame is shared with its device.")
      .def_property_readonly("successful", [](const Frame& f) { return f.Successful; })
      .def_property_readonly("resolution",
                             [](const Frame& f) {
                               const pho::api::PhoXiSize size = f.GetResolution();
                               return py::make_tuple(size.Width, size.Height);
                             })
      .def_property_readonly("index", [](const Frame& f) { return f.Info.FrameIndex; })
      .def_property_readonly("timestamp", [](const Frame& f) { return f.Info.FrameTimestamp; }, "milliseconds")
      .def_property_readonly("sensor_position", [](const Frame& f) { return PointToArray(f.Info.SensorPosition); })
      .def_property_readonly("point_cloud",
                             [](py::object self) {
                               return MapView<pho::api::PointCloud32f, float>(self.cast<Frame&>().PointCloud, 3, self);
                             })
      .def_property_readonly("normal_map",
                             [](py::object self) {
                               return MapView<pho::api::NormalMap32f, float>(self.cast<Frame&>().NormalMap, 3, self);
                             })
      .def_property_readonly("depth_map",
                             [](py::object self) {
                               return MapView<pho::api::DepthMap32f, float>(self.cast<Frame&>().DepthMap, 1, self);
                             })
      .def_property_readonly(
          "confidence_map",
          [](py::object self) {
            return MapView<pho::api::ConfidenceMap32f, float>(self.cast<Frame&>().ConfidenceMap, 1, self);
          })
      .def_property_readonly("texture",
                             [](py::object self) {
                               return MapView<pho::api::Texture32f, float>(self.cast<Frame&>().Texture, 1, self);
                             })
      .def_property_readonly(
          "texture_rgb",
          [](py::object self) {
            return MapView<pho::api::TextureRGB16, std::uint16_t>(self.cast<Frame&>().TextureRGB, 3, self);
          },
          "(height, width, 3) uint16")
      .def("__repr__", [](const Frame& f) {
        const pho::api::PhoXiSize size = f.GetResolution();
        return "<tavrin.Frame " + std::to_string(f.Info.FrameIndex) + ", " + std::to_string(size.Width) + " x " +
               std::to_string(size.Height) + (f.Successful ? "" : ", unsuccessful") + ">";
      });
}

void BindCloud(py::module_& m) {
  py::class_<Cloud, std::shared_ptr<Cloud>>(
      m, "PhoPointCloud",
      "A Photoneo PLY point cloud: organised grids as writable NumPy views (None when absent), the sensor pose and "
      "the calibration as stored in the file. Texture channels: see the README (file order blue, green, red).")
      .def(py::init<>())
      .def_property_readonly(
          "points", [](py::object self) { return MatView(self.cast<Cloud&>().points, CV_32FC3, self); },
          "(height, width, 3) float32")
      .def_property_readonly(
          "texture", [](py::object self) { return MatView(self.cast<Cloud&>().texture, CV_8UC3, self); },
          "(height, width, 3) uint8")
      .def_property_readonly(
          "normals", [](py::object self) { return MatView(self.cast<Cloud&>().normals, CV_32FC3, self); },
          "(height, width, 3) float32")
      .def_property_readonly(
          "faces", [](py::object self) { return MatView(self.cast<Cloud&>().faces, CV_32SC3, self, true); },
          "(n, 3) int32 vertex indices")
      .def_readwrite("has_view", &Cloud::hasView)
      .def_property_readonly("view_point", [](const Cloud& c) { return ToArray(c.viewPoint); })
      .def_property_readonly("x_axis", [](const Cloud& c) { return ToArray(c.xAxis); })
      .def_property_readonly("y_axis", [](const Cloud& c) { return ToArray(c.yAxis); })
      .def_property_readonly("z_axis", [](const Cloud& c) { return ToArray(c.zAxis); })
      .def_readwrite("camera_matrix", &Cloud::cameraMatrix, "9 floats, row-major")
      .def_readwrite("distortion_matrix", &Cloud::distortionMatrix, "14 floats, OpenCV order")
      .def_readwrite("camera_resolution", &Cloud::cameraResolution, "width, height")
      .def_readwrite("frame_binning", &Cloud::frameBinning, "horizontal, vertical")
      .def_readwrite("has_calibration", &Cloud::hasCalibration)
      .def_readonly("valid_points", &Cloud::validPoints)
      .def("__repr__", [](const Cloud& c) {
        return "<tavrin.PhoPointCloud " + std::to_string(c.points.cols) + " x " + std::to_string(c.points.rows) +
               ", " + std::to_string(c.validPoints) + " valid points>";
      });
}

// The conversion's precondition, which it does not check itself.
void RequireUsable(const Frame& frame) {
  if (!frame.Successful || frame.Empty() || frame.PointCloud.Empty()) {
    throw py::value_error("frame_to_scan needs a successful frame with a point cloud");
  }
}

void BindConversions(py::module_& m) {
  m.def(
      "frame_to_scan",
      [](const std::shared_ptr<Frame>& frame, const zelk::ScanCameraParams& params, const py::object& accept) {
        RequireUsable(*frame);
        Acceptance acceptance(accept);
        auto scan = std::make_unique<zelk::Scan>();
        Call call;
        const bool ok = Unlocked([&] { return tavrin::PhoFrameToScan(frame, params, *scan, acceptance.Function()); });
        acceptance.RaiseIfFailed();
        if (!ok) call.Fail("frame_to_scan: the frame could not be converted");
        return scan;
      },
      py::arg("frame"), py::arg("camera_params"), py::arg("accept") = py::none(),
      "A new Scan of the frame's measured points (mm) kept by `accept` (None, a callable f(x, y, z) or a box "
      "[[xmin, ymin, zmin], [xmax, ymax, zmax]]), with the intrinsics scaled from the full-resolution "
      "`camera_params`. Releases the GIL.");
  m.def(
      "scan_to_frame",
      [](const zelk::Scan& scan, const py::object& texture) {
        const tavrin::ColorOutput colors = ChooseTexture(texture, scan);
        Call call;
        std::shared_ptr<Frame> frame = Unlocked([&] { return tavrin::ScanToPhoFrame(scan, colors); });
        if (!frame) call.Fail("scan_to_frame: the scan could not be converted");
        return frame;
      },
      py::arg("scan"), py::arg("texture") = "auto", "A new Frame of the scan (through a PhoPointCloud).");
  m.def(
      "scan_to_pho_point_cloud",
      [](const zelk::Scan& scan, const py::object& texture) {
        const tavrin::ColorOutput colors = ChooseTexture(texture, scan);
        Call call;
        std::shared_ptr<Cloud> cloud = Unlocked([&] { return tavrin::ZelkScanToPhoPointCloud(scan, colors); });
        if (!cloud) call.Fail("scan_to_pho_point_cloud: the scan could not be converted");
        return cloud;
      },
      py::arg("scan"), py::arg("texture") = "auto",
      "A new PhoPointCloud of the scan in the PhoXi convention of its space (mm).");
  m.def(
      "pho_point_cloud_to_frame",
      [](const Cloud& cloud) {
        Call call;
        std::shared_ptr<Frame> frame = Unlocked([&] { return tavrin::PhoPointCloudToPhoFrame(cloud); });
        if (!frame) call.Fail("pho_point_cloud_to_frame: the cloud could not be converted");
        return frame;
      },
      py::arg("cloud"), "A new Frame copying an organised cloud's grids.");
  m.def(
      "pho_point_cloud_to_scan",
      [](const Cloud& cloud) {
        auto scan = std::make_unique<zelk::Scan>();
        Call call;
        if (!Unlocked([&] { return tavrin::PhoPointcloudToZelkScan(*scan, cloud); })) {
          call.Fail("pho_point_cloud_to_scan: the cloud could not be converted");
        }
        return scan;
      },
      py::arg("cloud"), "A new Scan of an organised cloud with calibration (texture channel 0 as intensity).");
}

}  // namespace

void BindFrames(py::module_& m) {
  BindFrame(m);
  BindCloud(m);
  BindConversions(m);
}

}  // namespace tavrin_python
