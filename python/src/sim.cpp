// tavrin.sim: the simulated PhoXi Control of this build (virtual scanners,
// fault injection), for tests and demos. Process-wide, like the simulation.
#include "bindings.h"

#include <PhoXiControl.h>

#include <pybind11/stl.h>

#include <chrono>
#include <string>
#include <utility>

namespace tavrin_python {
namespace {

namespace sim = pho::sim;

// The simulation answers false for an unknown identification.
void Known(bool ok, const std::string& id) {
  if (!ok) throw py::value_error("tavrin.sim: no virtual device '" + id + "'");
}

sim::TextureKind ChooseTexture(const py::handle& value) {
  return Choose<sim::TextureKind>(value, {{"grey", sim::TextureKind::Grey}, {"colour", sim::TextureKind::Colour}},
                                  "texture");
}

void BindDevices(py::module_& s) {
  py::enum_<sim::TextureKind>(s, "TextureKind")
      .value("GREY", sim::TextureKind::Grey)
      .value("COLOUR", sim::TextureKind::Colour);
  s.def(
      "add_device",
      [](const std::string& id, const std::string& name, const py::object& type,
         const std::pair<int, int>& resolution, const py::object& texture, bool attached, bool ready) {
        sim::VirtualDevice device;
        device.HWIdentification = id;
        device.Name = name;
        device.Type = Choose<pho::api::PhoXiDeviceType::Value>(
            type,
            {{"scanner", pho::api::PhoXiDeviceType::PhoXiScanner},
             {"motioncam", pho::api::PhoXiDeviceType::MotionCam3D}},
            "type");
        device.Resolution = pho::api::PhoXiSize(resolution.first, resolution.second);
        device.Texture = ChooseTexture(texture);
        device.Attached = attached;
        device.Ready = ready;
        if (!sim::AddDevice(device)) {
          throw py::value_error("tavrin.sim.add_device: '" + id +
                                "' is empty or taken, or the resolution is not a sensor resolution");
        }
      },
      py::arg("id"), py::kw_only(), py::arg("name") = "", py::arg("type") = "scanner",
      py::arg("resolution") = std::make_pair(2064, 1544), py::arg("texture") = "grey", py::arg("attached") = true,
      py::arg("ready") = true,
      "Adds a virtual scanner. resolution: 2064x1544, 1032x772, 1680x1200, 1120x800 or 1440x1080; type 'scanner' "
      "or 'motioncam' (a DeviceType); texture 'grey' or 'colour'.");
  s.def(
      "remove_device", [](const std::string& id) { Known(sim::RemoveDevice(id), id); }, py::arg("id"),
      "Removes a device, dropping its connections.");
  s.def(
      "set_attached", [](const std::string& id, bool attached) { Known(sim::SetAttached(id, attached), id); },
      py::arg("id"), py::arg("attached"));
  s.def(
      "set_ready", [](const std::string& id, bool ready) { Known(sim::SetReady(id, ready), id); }, py::arg("id"),
      py::arg("ready"));
  s.def(
      "set_texture",
      [](const std::string& id, const py::object& texture) { Known(sim::SetTextureKind(id, ChooseTexture(texture)), id); },
      py::arg("id"), py::arg("texture"));
  s.def("list_devices", &sim::ListDevices, "Hardware identifications of all devices and file cameras.");
  s.def("add_default_devices", &sim::AddDefaultDevices,
        "Adds the devices offered from the start (TVR-SIM-0001, TVR-SIM-0002, or PHOXI_SIM_DEVICES); their number.");
  s.def(
      "set_freerun",
      [](const std::string& id, int periodMs, int capacity) {
        Known(sim::SetFreerun(id, std::chrono::milliseconds(periodMs), capacity), id);
      },
      py::arg("id"), py::arg("period_ms") = 50, py::arg("capacity") = 8,
      "In free run the device delivers a frame per period into a buffer of `capacity`.");
}

void BindControl(py::module_& s) {
  s.def(
      "reset",
      [](bool defaultDevices) {
        sim::Reset();
        if (defaultDevices) sim::AddDefaultDevices();
      },
      py::arg("default_devices") = true,
      "Drops every connection, device, fault and counter and restarts PhoXi Control; then adds the default "
      "devices unless told not to.");
  s.def("start_control", &sim::StartControl);
  s.def("stop_control", &sim::StopControl, "Drops every connection; the factory then refuses everything.");
  s.def("is_control_running", &sim::IsControlRunning);
  s.def("set_control_version", &sim::SetControlVersion, py::arg("version"));
}

void BindFaults(py::module_& s) {
  s.def(
      "fail_next_triggers",
      [](const std::string& id, int count, int code) { Known(sim::FailNextTriggers(id, count, code), id); },
      py::arg("id"), py::arg("count") = 1, py::arg("code") = -1, "The next `count` triggers return `code` (< 0).");
  s.def(
      "drop_connection",
      [](const std::string& id, int afterFrames) { Known(sim::DropConnection(id, afterFrames), id); },
      py::arg("id"), py::arg("after_frames") = 0, "The connection drops after that many more frames (0: now).");
  s.def(
      "throw_on_connect", [](const std::string& id, bool enable) { Known(sim::ThrowOnConnect(id, enable), id); },
      py::arg("id"), py::arg("enable") = true);
  s.def("throw_on_next_connects", &sim::ThrowOnNextConnects, py::arg("count") = 1);
  s.def(
      "throw_on_device_calls",
      [](const std::string& id, bool enable) { Known(sim::ThrowOnDeviceCalls(id, enable), id); }, py::arg("id"),
      py::arg("enable") = true, "Calls of connected handles throw, as when PhoXi Control cannot reach the device.");
  s.def(
      "refuse_can_connect", [](const std::string& id, bool enable) { Known(sim::RefuseCanConnect(id, enable), id); },
      py::arg("id"), py::arg("enable") = true);
  s.def(
      "make_frames_unsuccessful",
      [](const std::string& id, int count) { Known(sim::MakeFramesUnsuccessful(id, count), id); }, py::arg("id"),
      py::arg("count") = 1, "The next `count` frames arrive unsuccessful (< 0: all until cleared with 0).");
  s.def(
      "set_frame_delay",
      [](const std::string& id, int delayMs) { Known(sim::SetFrameDelay(id, std::chrono::milliseconds(delayMs)), id); },
      py::arg("id"), py::arg("delay_ms"), "Each frame arrives that long after its trigger.");
  s.def("fail_next_attach_file_camera", &sim::FailNextAttachFileCamera, py::arg("count") = 1);
}

}  // namespace

void BindSim(py::module_& m) {
  py::module_ s = m.def_submodule("sim", "The simulated PhoXi Control: virtual scanners and fault injection.");
  s.attr("DEFAULT_SCANNER_ID") = sim::kDefaultScannerId;
  s.attr("COLOR_SCANNER_ID") = sim::kColorScannerId;
  BindDevices(s);
  BindControl(s);
  BindFaults(s);
  // So that `import tavrin.sim` works as well as `tavrin.sim`.
  py::module_::import("sys").attr("modules")["tavrin.sim"] = s;
}

}  // namespace tavrin_python
