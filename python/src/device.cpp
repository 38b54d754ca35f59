// tavrin.PhoXiDevice.
//
// Every instance call releases the GIL: the device's lock may be held by a
// thread whose Python acceptance function waits for the GIL, and the
// device's watchdog thread takes the GIL to run the connection-lost
// callback while Disconnect, Reset, a new registration and the destructor
// wait for that callback to return.
#include "bindings.h"
#include "callables.h"
#include "errors.h"

#include <tavrin/PhoXiDevice.h>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrin_python {
namespace {

using tavrin::PhoXiDevice;
using OperationMode = pho::api::PhoXiOperationMode::Value;

// Owns the device; destroys it without the GIL (see above).
class Device {
public:
  Device() : device_(std::make_unique<PhoXiDevice>()) {}
  ~Device() {
    if (Py_IsInitialized() && PyGILState_Check()) {
      const py::gil_scoped_release release;
      device_.reset();
    }
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  PhoXiDevice* operator->() const { return device_.get(); }

private:
  std::unique_ptr<PhoXiDevice> device_;
};

PhoXiDevice::Type ChooseType(const py::handle& value) {
  return Choose<PhoXiDevice::Type>(
      value, {{"auto", PhoXiDevice::Auto}, {"device", PhoXiDevice::Device}, {"file_camera", PhoXiDevice::FileCamera}},
      "type");
}

PhoXiDevice::Mode ChooseMode(const py::handle& value) {
  return Choose<PhoXiDevice::Mode>(
      value,
      {{"camera", PhoXiDevice::CameraSpace}, {"marker", PhoXiDevice::MarkerSpace}, {"device", PhoXiDevice::DeviceSpace}},
      "mode");
}

OperationMode ChooseOperationMode(const py::handle& value) {
  return Choose<OperationMode>(value,
                               {{"camera", pho::api::PhoXiOperationMode::Camera},
                                {"scanner", pho::api::PhoXiOperationMode::Scanner},
                                {"2d", pho::api::PhoXiOperationMode::Mode2D}},
                               "operation_mode");
}

// Runs a bool member without the GIL; tavrin.Error when it returns false
// (`fallback` is its text when the library logged nothing).
template <class F>
void Require(const char* fallback, F&& member) {
  Call call;
  if (!Unlocked(member)) call.Fail(fallback);
}

// A capture-like member that fills a new scan, with `accept` as the filter.
template <class F>
std::unique_ptr<zelk::Scan> ScanBy(const char* what, const py::object& accept, F&& member) {
  Acceptance acceptance(accept);
  auto scan = std::make_unique<zelk::Scan>();
  Call call;
  const bool ok = Unlocked([&] { return member(*scan, acceptance.Function()); });
  acceptance.RaiseIfFailed();
  if (!ok) call.Fail(std::string(what) + " failed");
  return scan;
}

std::shared_ptr<pho::api::Frame> FrameBy(const char* what, const Device& device, bool manual) {
  Call call;
  auto frame = Unlocked([&] { return manual ? device->GetLastManuallyCapturedPFrame() : device->GetLastPFrame(); });
  if (!frame) call.Fail(std::string(what) + ": no usable frame");
  return frame;
}

void BindTypes(py::class_<Device>& device, py::module_& m) {
  py::enum_<PhoXiDevice::Type>(device, "Type")
      .value("AUTO", PhoXiDevice::Auto)
      .value("DEVICE", PhoXiDevice::Device)
      .value("FILE_CAMERA", PhoXiDevice::FileCamera);
  py::enum_<PhoXiDevice::Mode>(device, "Mode")
      .value("UNKNOWN", PhoXiDevice::Unknown)
      .value("DEVICE_SPACE", PhoXiDevice::DeviceSpace)
      .value("MARKER_SPACE", PhoXiDevice::MarkerSpace)
      .value("CAMERA_SPACE", PhoXiDevice::CameraSpace);
  py::enum_<PhoXiDevice::ConnectionStatus>(device, "ConnectionStatus")
      .value("CONTROL_NOT_RUNNING", PhoXiDevice::ControlNotRunning)
      .value("NOT_FOUND", PhoXiDevice::NotFound)
      .value("NOT_READY", PhoXiDevice::NotReady)
      .value("READY", PhoXiDevice::Ready)
      .value("ATTACHED", PhoXiDevice::Attached);
  py::enum_<OperationMode>(m, "OperationMode", "MotionCam operation mode.")
      .value("NO_VALUE", pho::api::PhoXiOperationMode::NoValue)
      .value("CAMERA", pho::api::PhoXiOperationMode::Camera)
      .value("SCANNER", pho::api::PhoXiOperationMode::Scanner)
      .value("MODE_2D", pho::api::PhoXiOperationMode::Mode2D);
  py::enum_<pho::api::PhoXiDeviceType::Value>(m, "DeviceType")
      .value("NO_VALUE", pho::api::PhoXiDeviceType::NoValue)
      .value("PHOXI_SCANNER", pho::api::PhoXiDeviceType::PhoXiScanner)
      .value("MOTION_CAM_3D", pho::api::PhoXiDeviceType::MotionCam3D);
  using Description = PhoXiDevice::DeviceDescription;
  py::class_<Description>(device, "Description", "One device as PhoXi Control lists it.")
      .def_readonly("id", &Description::id, "hardware identification")
      .def_readonly("name", &Description::name)
      .def_property_readonly("type", [](const Description& d) { return static_cast<pho::api::PhoXiDeviceType::Value>(d.type); })
      .def_readonly("is_file_camera", &Description::isFileCamera)
      .def_readonly("status", &Description::status)
      .def("__repr__", [](const Description& d) {
        return "<tavrin.PhoXiDevice.Description '" + d.id + "' " +
               py::str(py::cast(d.status)).cast<std::string>() + ">";
      });
}

void BindQueries(py::class_<Device>& device) {
  device
      .def_static(
          "attached_devices", [] { return Unlocked(&PhoXiDevice::GetAttachedDevices); },
          "Hardware identifications of every device PhoXi Control lists.")
      .def_static(
          "ready_devices", [] { return Unlocked(&PhoXiDevice::GetReadyDevices); },
          "Those of them that are ready or attached.")
      .def_static(
          "connection_status",
          [](const std::string& id) { return Unlocked([&] { return PhoXiDevice::GetDeviceConnectionStatus(id); }); },
          py::arg("id"))
      .def_static("is_phoxi_control_running", [] { return Unlocked(&PhoXiDevice::IsPhoXiControlRunning); })
      .def_static(
          "phoxi_control_version", [] { return Unlocked(&PhoXiDevice::GetPhoXiControlVersion); },
          "Version text of PhoXi Control; '' when it is not running.")
      .def_static(
          "device_descriptions", [] { return Unlocked(&PhoXiDevice::GetDeviceDescriptions); },
          "Every listed device with name, type and status.");
}

void BindConnection(py::class_<Device>& device) {
  device
      .def(
          "connect",
          [](Device& d, const std::string& id, const py::object& type, bool leaveConnected, bool freeRun) {
            const PhoXiDevice::Type chosen = ChooseType(type);
            Require("connect failed", [&] { return d->Connect(chosen, id, leaveConnected, freeRun); });
          },
          py::arg("id"), py::arg("type") = "auto", py::arg("leave_connected") = false, py::arg("free_run") = false,
          "Connects a scanner by hardware id ('device'), recordings ('file_camera': id is a path) or whichever "
          "'auto' finds; blocks for the connection (150 ms settle). Does nothing when already connected.")
      .def(
          "connect_first_attached",
          [](Device& d, bool leaveConnected, bool freeRun) {
            Require("connect_first_attached failed", [&] { return d->ConnectFirstAttached(leaveConnected, freeRun); });
          },
          py::arg("leave_connected") = false, py::arg("free_run") = false)
      .def(
          "connect_file_cameras",
          [](Device& d, const std::vector<std::filesystem::path>& paths, bool leaveConnected, bool freeRun) {
            std::vector<std::string> files;
            for (const auto& path : paths) files.push_back(path.string());
            Require("connect_file_cameras failed", [&] { return d->ConnectFileCameras(files, leaveConnected, freeRun); });
          },
          py::arg("paths"), py::arg("leave_connected") = false, py::arg("free_run") = false,
          "Plays the recordings, in order, as a new file camera.")
      .def(
          "connect_camera_sync",
          [](Device& d, const std::string& id, const py::object& type) {
            const std::optional<PhoXiDevice::Type> chosen =
                type.is_none() ? std::nullopt : std::optional<PhoXiDevice::Type>(ChooseType(type));
            Require("connect_camera_sync failed", [&] { return d->ConnectCameraSync(chosen, id); });
          },
          py::arg("id") = "", py::arg("type") = py::none(),
          "Connects in free run and waits (at most ~10 s) for a first good frame, which get_scan then serves.")
      .def(
          "disconnect", [](Device& d) { Require("disconnect failed", [&] { return d->Disconnect(); }); },
          "Ends the watchdog, stops acquisition, disconnects (detaching a file camera).")
      .def(
          "reset", [](Device& d) { Unlocked([&] { d->Reset(); }); },
          "Disconnects as destruction does, drops the connection-lost callback, starts over.")
      .def("pause", [](Device& d) {
        Call call;
        Unlocked([&] { d->Pause(); });
        if (call.Warned()) call.Fail("pause failed");
      })
      .def("resume", [](Device& d) {
        Call call;
        Unlocked([&] { d->Resume(); });
        if (call.Warned()) call.Fail("resume failed");
      })
      .def("__enter__", [](py::object self) { return self; })
      .def(
          "__exit__",
          [](Device& d, const py::object& type, const py::object&, const py::object&) {
            Call call;
            // Disconnect even when the block raised; report a failure only
            // when it would not hide the block's own exception.
            if (!Unlocked([&] { return d->Disconnect(); }) && type.is_none()) call.Fail("disconnect failed");
            return false;
          },
          "Disconnects.");
}

void BindState(py::class_<Device>& device) {
  device
      .def_property_readonly("is_connected", [](const Device& d) { return Unlocked([&] { return d->IsConnected(); }); })
      .def_property_readonly("is_acquiring",
                             [](const Device& d) { return Unlocked([&] { return d->IsAcquisitionMode(); }); })
      .def_property_readonly(
          "id",
          [](const Device& d) {
            Call call;
            const std::string id = Unlocked([&] { return d->GetId(); });
            if (id.empty()) call.Fail("id: not connected");
            return id;
          },
          "Hardware identification (or file camera name) of the connected device")
      .def_property_readonly(
          "resolution",
          [](const Device& d) {
            Call call;
            const glm::uvec2 size = Unlocked([&] { return d->GetResolution(); });
            if (size.x == 0 || size.y == 0) call.Fail("resolution: not connected");
            return py::make_tuple(size.x, size.y);
          },
          "(width, height) in pixels")
      .def_property(
          "mode",
          [](const Device& d) {
            Call call;
            const PhoXiDevice::Mode mode = Unlocked([&] { return d->GetMode(); });
            if (mode == PhoXiDevice::Unknown) call.Fail("mode: not connected");
            return mode;
          },
          [](Device& d, const py::object& value) {
            const PhoXiDevice::Mode mode = ChooseMode(value);
            Call call;
            if (!Unlocked([&] { return d->SetMode(mode); })) call.Fail("mode: the device is not connected");
          },
          "PhoXiDevice.Mode, or 'camera', 'marker', 'device' to set")
      .def_property(
          "operation_mode",
          [](const Device& d) {
            Call call;
            const OperationMode mode = Unlocked([&] { return d->GetOperationMode(); });
            if (mode == pho::api::PhoXiOperationMode::NoValue) call.Fail("operation_mode: not available");
            return mode;
          },
          [](Device& d, const py::object& value) {
            const pho::api::PhoXiOperationMode mode(ChooseOperationMode(value));
            Call call;
            if (!Unlocked([&] { return d->SetOperationMode(mode); })) {
              call.Fail("operation_mode: the device is not connected");
            }
          },
          "MotionCam OperationMode, or 'camera', 'scanner', '2d' to set")
      .def_property_readonly("normals_enabled",
                             [](const Device& d) { return Unlocked([&] { return d->AreNormalsEnabled(); }); })
      .def(
          "enable_normals",
          [](Device& d) { Require("enable_normals: the device is not connected", [&] { return d->EnableNormals(); }); },
          "Switches the normal map on (scans then have normals).")
      .def_property_readonly(
          "calibration_settings",
          [](const Device& d) {
            Call call;
            pho::api::PhoXiCalibrationSettings settings = Unlocked([&] { return d->GetCalibrationSettings(); });
            if (call.Warned()) call.Fail("calibration_settings: not connected");
            return settings;
          },
          "The device's CalibrationSettings (one query)");
}

void BindAcquisition(py::class_<Device>& device) {
  device
      .def(
          "capture", [](Device& d) { Require("capture failed", [&] { return d->Capture(); }); },
          "Sends a software trigger (reconnecting a lost device first); does not wait for the frame.")
      .def(
          "capture_scan",
          [](Device& d, const py::object& accept) {
            return ScanBy("capture_scan", accept,
                          [&](zelk::Scan& scan, const tavrin::AcceptanceFunction& f) { return d->CaptureScan(scan, f); });
          },
          py::arg("accept") = py::none(),
          "capture() then get_scan(): a new Scan, blocking until the frame is converted (GIL released). `accept`: "
          "None (all points), a box [[xmin, ymin, zmin], [xmax, ymax, zmax]] (fast, in C++) or a callable "
          "f(x, y, z) -> bool (slow: the GIL is taken per point).")
      .def(
          "_cpp_capture_scan_seconds",
          [](Device& d, int count) {
            // The baseline of the Python binding's overhead: the same captures
            // made by C++ code, each into a new scan as capture_scan does.
            std::vector<double> seconds;
            Call call;
            const bool ok = Unlocked([&] {
              for (int i = 0; i < count; ++i) {
                const auto start = std::chrono::steady_clock::now();
                zelk::Scan scan;
                if (!d->CaptureScan(scan, nullptr)) return false;
                seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
              }
              return true;
            });
            if (!ok) call.Fail("capture_scan failed");
            return seconds;
          },
          py::arg("count"),
          "Benchmarks: the wall time in seconds of each of `count` captures made in C++ (as capture_scan).")
      .def(
          "get_scan",
          [](Device& d, const py::object& accept) {
            return ScanBy("get_scan", accept,
                          [&](zelk::Scan& scan, const tavrin::AcceptanceFunction& f) { return d->GetScan(scan, f); });
          },
          py::arg("accept") = py::none(), "A new Scan of the triggered frame (see capture_scan).")
      .def(
          "last_frame", [](const Device& d) { return FrameBy("last_frame", d, true); },
          "The triggered Frame (shared with the device).")
      .def(
          "next_frame", [](const Device& d) { return FrameBy("next_frame", d, false); },
          "The next Frame of the free-running stream.")
      .def(
          "camera_transform",
          [](Device& d, const utils::SpaceDefinition& space) {
            Call call;
            const std::optional<glm::mat4> view = Unlocked([&] { return d->GetCameraTransform(space); });
            if (!view) call.Fail("camera_transform: no frame");
            return ToArray(*view);
          },
          py::arg("space"),
          "The camera pose of the triggered frame as a 4 x 4 float32 glm::lookAt-style view matrix (mm), "
          "re-expressed for `space` (e.g. tavrin.LOOK_AT).")
      .def(
          "point_cloud_dimensions",
          [](Device& d) {
            Call call;
            const auto size = Unlocked([&] { return d->GetPointCloudDimensions(); });
            if (!size) call.Fail("point_cloud_dimensions: no frame");
            return py::make_tuple(size->width, size->height);
          },
          "(width, height) of the triggered frame's point cloud")
      .def(
          "save_last_output",
          [](Device& d, const std::filesystem::path& path) {
            Require("save_last_output failed", [&] { return d->SaveLastOutput(path.string()); });
          },
          py::arg("path"), "Has the device write its last frame as .praw (a recording) or .ply; replaces `path`.")
      .def(
          "on_connection_lost",
          [](Device& d, const py::function& callback) {
            std::function<void()> function = ThreadSafeCallback(callback);
            Unlocked([&] { d->AddConnectionLostCallback(std::move(function)); });
          },
          py::arg("callback"),
          "Polls the connection once a second on a watchdog thread and calls `callback()` there (with the GIL) "
          "once when it is lost. Replaces an earlier callback; disconnect() and reset() end the polling.");
}

}  // namespace

void BindDevice(py::module_& m) {
  py::class_<Device> device(m, "PhoXiDevice",
                            "One PhoXi scanner or file camera. Any thread may call it (calls are serialised); "
                            "the GIL is released during every call. `with PhoXiDevice() as dev:` disconnects on "
                            "exit; failures raise tavrin.Error.");
  device.def(py::init<>());
  BindTypes(device, m);
  BindQueries(device);
  BindConnection(device);
  BindState(device);
  BindAcquisition(device);
}

}  // namespace tavrin_python
