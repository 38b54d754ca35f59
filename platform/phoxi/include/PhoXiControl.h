#pragma once
// Control surface of the simulated PhoXi Control that stands behind the PhoXi
// API of this stand-in (PhoXi.h). Tests and tools use it to set up virtual
// devices, inject faults and read counters; the API side never needs it.
//
// The simulation is process-wide and in-process. Every function here is
// thread-safe and may run concurrently with any API call. A process starts
// with PhoXi Control running, version kDefaultControlVersion, no devices and
// no file cameras; Reset() returns to exactly that state (tests call it
// between cases). The two example file cameras that the real application
// ships ("InstalledExamples-basic-example", "InstalledExamples-PhoXi-example")
// are not listed, since they come without recordings here.
//
// Devices are addressed by hardware identification. File cameras (made by
// PhoXiFactory::AttachFileCamera) are devices too, with two identities made
// from the name they were attached under: their PhoXi name (GetName, the
// list's Name) is that name, their hardware identification is "file:"
// followed by it (FileCameraHardwareId), which AttachFileCamera returns and
// CreateAndConnect, the fault and the counter functions take.
// DetachFileCamera accepts either.
//
// Synthetic frames show a fixed scene (see SceneDescription) ray-cast through
// the device's calibration with a pinhole model; lens distortion is not
// applied to the rendering, so the default calibration has zero distortion.
// A frame is rendered when it is first fetched, on the fetching thread.
//
// How the simulated devices answer the API (where the real ones leave room):
// - Timeouts of GetFrame/GetSpecificFrame: ZeroTimeout and LastStored hand out
//   only a frame that has already arrived; a number of milliseconds waits up
//   to that long; Infinity waits while a frame is on its way (a triggered
//   frame not yet arrived, or free run) and returns null at once otherwise;
//   Default uses the device's Timeout setting (10 s unless changed). A frame
//   id that was handed out, dropped or never triggered returns null.
// - Each frame is handed out once; GetFrame takes the oldest arrived frame.
// - TriggerFrame never waits; it returns -6 when not connected, an injected
//   code, -1 outside software-trigger mode, -7 when not acquiring.
// - CreateAndConnect attaches the device; Disconnect(LogOutDevice = true)
//   detaches it; several handles on one device share its state.
// - GetDeviceList lists every device whatever its RefreshDeviceDiscovery flag
//   (the simulated list is always current); the flag of each call is
//   recorded (ControlCounters).
// - File cameras: see above for their identities; they replay
//   their recordings in order, looping (a copy per trigger, frame info as
//   recorded). Their TriggerMode and Timeout can be set; every other setting
//   is read-only (no setter), reporting the recorded values. Recordings with
//   a calibration or maps that no device reports are not attached
//   (src/PlayableRecording.h); a faulty calibration reaches the API only
//   from a VirtualDevice.
// - CalibrationSettings and HardwareIdentification are read-only features;
//   HardwareIdentification and GetName stay readable after a disconnect.
// - SaveLastOutput saves the last frame handed out (or an arrived frame by id)
//   as ".praw" (platform/phoxi/src/PrawFile.h documents the format) or ".ply" (binary, point
//   cloud, normals when present, texture, metadata, the device calibration;
//   binning (2, 2) at 1032 x 772, else (1, 1)); other extensions fail.
#include "PhoXiDataTypes.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace pho {
namespace sim {

inline constexpr const char* kDefaultControlVersion = "1.9.1";

enum class TextureKind : unsigned char {
  Grey,    // Texture only
  Colour,  // Texture plus TextureRGB (10-bit channels, 0..1023)
};

// Definition of a virtual hardware device.
struct VirtualDevice {
  std::string HWIdentification;  // required, unique
  std::string Name;              // empty: the hardware identification is used
  api::PhoXiDeviceType Type{api::PhoXiDeviceType::PhoXiScanner};
  // Current resolution; one of 1680x1200, 2064x1544, 1440x1080 (full) or
  // 1120x800 (reduced from 1680x1200), 1032x772 (binned from 2064x1544). The
  // Resolution feature then accepts the full resolution and its reduced one.
  api::PhoXiSize Resolution{2064, 1544};
  // Calibration for the full resolution, as real devices report it. An empty
  // camera matrix means DefaultCalibration(full resolution). Fewer than five
  // distortion coefficients are kept as given (a faulty device).
  api::PhoXiCalibrationSettings Calibration;
  bool Attached = true;
  bool Ready = true;
  TextureKind Texture = TextureKind::Grey;
  std::string FirmwareVersion = "1.9.1";
  std::string Variant;
};

// Observable state of a device (virtual device or file camera).
struct DeviceState {
  VirtualDevice Definition;  // current definition (Resolution follows the feature)
  api::PhoXiSize FullResolution;
  bool IsFileCamera = false;
  bool Connected = false;  // some handle is connected
  bool Acquiring = false;
  api::PhoXiTriggerMode TriggerMode{api::PhoXiTriggerMode::Software};
  api::PhoXiCoordinatesSettings CoordinatesSettings;
  api::FrameOutputSettings OutputSettings;
  api::PhoXiProcessingSettings ProcessingSettings;
  api::PhoXiMotionCam MotionCam;
  int BufferedFrames = 0;  // frames waiting in the device buffer
};

// Calls counted per device since it was added (kept after the device is
// removed or detached, until Reset).
struct DeviceCounters {
  int ConnectCalls = 0;  // successful CreateAndConnect / ...FirstAttached
  int TriggerFrameCalls = 0;
  int TriggersAccepted = 0;  // TriggerFrame calls that returned a frame id
  int GetFrameCalls = 0;
  int GetSpecificFrameCalls = 0;
  int ClearBufferCalls = 0;
  int StartAcquisitionCalls = 0;
  int StopAcquisitionCalls = 0;
  int DisconnectCalls = 0;
  bool LastDisconnectLogOut = false;  // flags of the last Disconnect call
  bool LastDisconnectStopAcquisition = false;
  int TriggerModeSetCalls = 0;
  api::PhoXiTriggerMode LastTriggerModeSet;  // NoValue until first set
  int FramesDelivered = 0;  // non-null frames handed out by GetFrame/GetSpecificFrame
};

// File camera calls counted since Reset.
struct FileCameraCounters {
  int AttachCalls = 0;
  std::string LastAttachName;
  std::vector<std::string> LastAttachPaths;
  int DetachCalls = 0;
  std::string LastDetachName;
  std::vector<std::string> DetachKeys;  // the argument of every DetachFileCamera call, in order
};

// PhoXi Control calls counted since Reset.
struct ControlCounters {
  // The RefreshDeviceDiscovery flag of every GetDeviceList call, in order.
  std::vector<bool> DeviceListRefresh;
};

// The hardware identification of the file camera attached under `name`.
std::string FileCameraHardwareId(const std::string& name);

// ---- PhoXi Control ----------------------------------------------------------

// PhoXi Control runs from the first use on, in every process that links this
// library, and lists the devices of DefaultDevices() (so a program finds a
// scanner to connect to without any set-up). Starting is idempotent. Stopping
// drops every connection (isConnected turns false), clears buffers and makes
// the factory refuse everything; devices and file cameras stay defined for the
// next start.
void StartControl();
void StopControl();
bool IsControlRunning();
void SetControlVersion(const std::string& version);
// Drops all connections, removes all devices (the default ones too), file
// cameras, faults and counters, restarts PhoXi Control with the default
// version.
void Reset();

// ---- the devices offered from the start ------------------------------------

// Hardware identifications of the built-in virtual devices.
inline constexpr const char* kDefaultScannerId = "TVR-SIM-0001";
inline constexpr const char* kColorScannerId = "TVR-SIM-0002";

// The devices PhoXi Control lists from its first use on. Without the
// environment variable PHOXI_SIM_DEVICES: the virtual PhoXi Scanner
// kDefaultScannerId, named "Virtual PhoXi 3D Scanner M", at 1032 x 772 (binned
// from 2064 x 1544) with a grey texture, listed first, and the virtual
// MotionCam kColorScannerId, "Virtual MotionCam-3D Color", at 1120 x 800
// (reduced from 1680 x 1200) with a colour texture. PHOXI_SIM_DEVICES replaces
// that list:
// devices separated by ";", each an identification followed by any of
// ":<W>x<H>" (a recognised resolution), ":grey" or ":colour" (the texture) and
// ":scanner" or ":motioncam" (the type), as in
//   PHOXI_SIM_DEVICES="A-1:2064x1544:colour;B-2:motioncam"
// An empty value means no devices. An entry that cannot be read is left out
// with a line on standard error. Read each time it is called.
std::vector<VirtualDevice> DefaultDevices();
// Adds DefaultDevices() (those whose identification is free); their number.
int AddDefaultDevices();

// ---- devices ----------------------------------------------------------------

// False when the identification is empty or taken, or the resolution is not
// recognised.
bool AddDevice(const VirtualDevice& device);
// Also drops the device's connections. False when unknown.
bool RemoveDevice(const std::string& hwId);
bool SetAttached(const std::string& hwId, bool attached);
bool SetReady(const std::string& hwId, bool ready);
bool SetCalibration(const std::string& hwId, const api::PhoXiCalibrationSettings& calibration);
bool SetTextureKind(const std::string& hwId, TextureKind texture);
// Hardware identifications of all devices and file cameras, in list order.
std::vector<std::string> ListDevices();
std::optional<DeviceState> GetDeviceState(const std::string& hwId);

// Full resolution that a recognised resolution is reduced from (itself for
// the full ones); (0, 0) when not recognised.
api::PhoXiSize FullResolutionOf(const api::PhoXiSize& resolution);
// Plausible calibration for a full resolution: fx = fy = 1.09 * width,
// principal point near the image centre, 14 zero distortion coefficients.
api::PhoXiCalibrationSettings DefaultCalibration(const api::PhoXiSize& fullResolution);

// ---- free run ---------------------------------------------------------------

// In trigger mode Freerun an acquiring device produces one frame per period
// (default 50 ms) into a buffer of `capacity` frames (default 8); when full
// the oldest frame is dropped.
bool SetFreerun(const std::string& hwId, std::chrono::milliseconds period, int capacity = 8);

// ---- fault injection (deterministic) ----------------------------------------

// The next `count` TriggerFrame calls return `code` (negative).
bool FailNextTriggers(const std::string& hwId, int count, int code);
// The connection drops after `afterFrames` more frames were handed out by
// GetFrame/GetSpecificFrame (0: at once); the last of them is still handed out. Connected handles then answer isConnected() false; reconnecting with
// CreateAndConnect works again.
bool DropConnection(const std::string& hwId, int afterFrames = 0);
// CreateAndConnect for this device throws std::runtime_error while enabled.
bool ThrowOnConnect(const std::string& hwId, bool enable = true);
// The next `count` CreateAndConnect calls throw std::runtime_error, whatever
// the device (file cameras included, whose names are only known once
// attached). A call that finds no connectable device returns empty as usual
// and does not use up the count.
void ThrowOnNextConnects(int count = 1);
// While enabled, the calls of connected handles of this device throw
// std::runtime_error, as the API does when PhoXi Control cannot reach the
// device: isConnected, isAcquiring, Start/StopAcquisition, ClearBuffer,
// Disconnect, TriggerFrame, GetFrame, GetSpecificFrame and reading or writing
// its features (except HardwareIdentification, which the handle knows). A
// handle whose connection is already lost answers as usual; destroying a
// handle never throws.
bool ThrowOnDeviceCalls(const std::string& hwId, bool enable = true);
// CanConnect for this device answers false while enabled.
bool RefuseCanConnect(const std::string& hwId, bool enable = true);
// The next `count` frames (triggered or streamed) arrive with Successful =
// false (their maps are filled as usual); a negative count means all frames
// until cleared with 0.
bool MakeFramesUnsuccessful(const std::string& hwId, int count);
// Each frame arrives `delay` after it was triggered (or streamed): until then
// GetFrame/GetSpecificFrame with a shorter timeout return null. Zero restores
// immediate frames.
bool SetFrameDelay(const std::string& hwId, std::chrono::milliseconds delay);
// The next `count` AttachFileCamera calls fail (return an empty string).
// (A device with fewer than five distortion coefficients is made by giving
// VirtualDevice::Calibration, or SetCalibration, such a list.)
void FailNextAttachFileCamera(int count = 1);

// ---- counters ---------------------------------------------------------------

// Zero counters for an unknown identification.
DeviceCounters GetCounters(const std::string& hwId);
FileCameraCounters GetFileCameraCounters();
ControlCounters GetControlCounters();

// ---- the scene ----------------------------------------------------------------

// The synthetic scene, in camera space (millimetres; x right, y down, z
// forward). Surfaces seen closer than kMinRange or farther than kMaxRange (z)
// are not measured.
struct SceneSphere {
  api::Point3_64f Centre;
  double Radius = 0.0;
};
struct SceneBox {  // axis-aligned
  api::Point3_64f Min;
  api::Point3_64f Max;
};
struct SceneDescription {
  double FloorY = 0.0;  // the ground plane y = FloorY, seen from above (-y side)
  std::vector<SceneSphere> Spheres;
  std::vector<SceneBox> Boxes;
  double MinRange = 0.0;  // mm, along z
  double MaxRange = 0.0;
};
const SceneDescription& Scene();
// Distance (mm) from a camera-space point to the nearest scene surface.
double DistanceToScene(const api::Point3_64f& point);

// Pose of the sensor in the fixed marker frame: a marker-space point is
// R * p + t for the camera-space point p, where the columns of R are XAxis,
// YAxis, ZAxis and t is Position.
struct SensorPose {
  api::Point3_64f Position;
  api::Point3_64f XAxis;
  api::Point3_64f YAxis;
  api::Point3_64f ZAxis;
};
SensorPose MarkerSensorPose();

}  // namespace sim
}  // namespace pho
