// pho::api::PhoXi: the device handle, forwarding to its DeviceConnection.
#include "DeviceConnection.h"
#include "SimResolution.h"

namespace pho {
namespace api {

namespace {

using Connection = std::shared_ptr<sim::DeviceConnection>;
using pho::sim::DeviceEntry;

// A feature read and written under the simulation lock while the handle is
// connected. `get(entry, value, error)` / `set(entry, value, error)`.
// File cameras replay recordings, so their settings cannot change: they get
// no setter unless `fileCameraWritable` (acquisition controls only).
template <class T, class Get, class Set>
PhoXiFeature<T> Feature(const char* name, const Connection& c, Get get, Set set, bool fileCameraWritable = false) {
  typename PhoXiFeature<T>::Getter getter = [c, get](T& value, std::string& error) {
    return c->Access(error, [&](DeviceEntry& entry, std::string& err) { return get(entry, value, err); });
  };
  typename PhoXiFeature<T>::Setter setter;
  if (!c->isFileCamera || fileCameraWritable) {
    setter = [c, set](const T& value, std::string& error) {
      return c->Access(error, [&](DeviceEntry& entry, std::string& err) { return set(entry, value, err); });
    };
  }
  return PhoXiFeature<T>(name, std::move(getter), std::move(setter));
}

template <class T>
PhoXiFeature<T> Plain(const char* name, const Connection& c, T DeviceEntry::*member, bool fileCameraWritable = false) {
  return Feature<T>(
      name, c,
      [member](DeviceEntry& e, T& v, std::string&) {
        v = e.*member;
        return true;
      },
      [member](DeviceEntry& e, const T& v, std::string&) {
        e.*member = v;
        return true;
      },
      fileCameraWritable);
}

PhoXiFeature<PhoXiSize> MakeResolution(const Connection& c) {
  return Feature<PhoXiSize>(
      "Resolution", c,
      [](DeviceEntry& e, PhoXiSize& v, std::string&) {
        v = e.def.Resolution;
        return true;
      },
      [](DeviceEntry& e, const PhoXiSize& v, std::string& error) {
        if (!pho::sim::ResolutionBelongsTo(v, e.fullResolution)) {
          error = "Resolution " + std::to_string(v.Width) + " x " + std::to_string(v.Height) +
                  " is not supported by this device";
          return false;
        }
        e.def.Resolution = v;
        return true;
      });
}

PhoXiFeature<PhoXiTriggerMode> MakeTriggerMode(const Connection& c) {
  typename PhoXiFeature<PhoXiTriggerMode>::Getter getter = [c](PhoXiTriggerMode& value, std::string& error) {
    return c->Access(error, [&](DeviceEntry& entry, std::string&) {
      value = entry.triggerMode;
      return true;
    });
  };
  typename PhoXiFeature<PhoXiTriggerMode>::Setter setter = [c](const PhoXiTriggerMode& value, std::string& error) {
    return c->SetTriggerMode(value, error);
  };
  return PhoXiFeature<PhoXiTriggerMode>("TriggerMode", std::move(getter), std::move(setter));
}

PhoXiFeature<PhoXiProcessingSettings> MakeProcessing(const Connection& c) {
  return Feature<PhoXiProcessingSettings>(
      "ProcessingSettings", c,
      [](DeviceEntry& e, PhoXiProcessingSettings& v, std::string&) {
        v = e.processing;
        return true;
      },
      [](DeviceEntry& e, const PhoXiProcessingSettings& v, std::string& error) {
        if (v.NormalsEstimationRadius < 0 || v.NormalsEstimationRadius > 4) {
          error = "NormalsEstimationRadius must be 0 to 4";
          return false;
        }
        e.processing = v;
        return true;
      });
}

PhoXiFeature<PhoXiCoordinatesSettings> MakeCoordinates(const Connection& c) {
  return Feature<PhoXiCoordinatesSettings>(
      "CoordinatesSettings", c,
      [](DeviceEntry& e, PhoXiCoordinatesSettings& v, std::string&) {
        v = e.coordinates;
        return true;
      },
      [](DeviceEntry& e, const PhoXiCoordinatesSettings& v, std::string& error) {
        if (v.CoordinateSpace == PhoXiCoordinateSpace::NoValue || v.CoordinateSpace.GetValue() == 2 ||
            v.CoordinateSpace.GetValue() > PhoXiCoordinateSpace::CustomSpace) {
          error = "Unsupported coordinate space";
          return false;
        }
        e.coordinates = v;
        return true;
      });
}

PhoXiFeature<std::string> MakeHardwareIdentification(const Connection& c) {
  // Readable after a disconnect too: the identification belongs to the handle.
  typename PhoXiFeature<std::string>::Getter getter = [c](std::string& value, std::string&) {
    value = c->hwId;
    return true;
  };
  return PhoXiFeature<std::string>("HardwareIdentification", std::move(getter), nullptr);
}

PhoXiFeature<PhoXiCalibrationSettings> MakeCalibration(const Connection& c) {
  typename PhoXiFeature<PhoXiCalibrationSettings>::Getter getter = [c](PhoXiCalibrationSettings& value,
                                                                      std::string& error) {
    return c->Access(error, [&](DeviceEntry& entry, std::string&) {
      value = entry.def.Calibration;
      return true;
    });
  };
  return PhoXiFeature<PhoXiCalibrationSettings>("CalibrationSettings", std::move(getter), nullptr);
}

PhoXiFeature<PhoXiMotionCam> MakeMotionCam(const Connection& c) {
  if (c->type != PhoXiDeviceType::MotionCam3D) return PhoXiFeature<PhoXiMotionCam>();
  return Plain<PhoXiMotionCam>("MotionCam", c, &DeviceEntry::motionCam);
}

}  // namespace

PhoXi::PhoXi(std::shared_ptr<sim::DeviceConnection> connection)
    : Resolution(MakeResolution(connection)),
      TriggerMode(MakeTriggerMode(connection)),
      Timeout(Plain<PhoXiTimeout>("Timeout", connection, &DeviceEntry::timeout, true)),
      ProcessingSettings(MakeProcessing(connection)),
      OutputSettings(Plain<FrameOutputSettings>("OutputSettings", connection, &DeviceEntry::output)),
      HardwareIdentification(MakeHardwareIdentification(connection)),
      CoordinatesSettings(MakeCoordinates(connection)),
      CalibrationSettings(MakeCalibration(connection)),
      MotionCam(MakeMotionCam(connection)),
      connection_(std::move(connection)) {}

PhoXi::~PhoXi() { connection_->Release(); }

bool PhoXi::isConnected() { return connection_->IsConnected(); }
bool PhoXi::isAcquiring() { return connection_->IsAcquiring(); }
bool PhoXi::StartAcquisition() { return connection_->StartAcquisition(); }
bool PhoXi::StopAcquisition() { return connection_->StopAcquisition(); }
int PhoXi::ClearBuffer() { return connection_->ClearBuffer(); }
bool PhoXi::Disconnect(bool LogOutDevice, bool StopDeviceAcquisition) {
  return connection_->Disconnect(LogOutDevice, StopDeviceAcquisition);
}
int PhoXi::TriggerFrame(bool, bool, const std::string&) { return connection_->TriggerFrame(); }
PFrame PhoXi::GetFrame(PhoXiTimeout Timeout) { return connection_->GetFrame(Timeout); }
PFrame PhoXi::GetSpecificFrame(int FrameID, PhoXiTimeout Timeout) {
  return connection_->GetSpecificFrame(FrameID, Timeout);
}
std::string PhoXi::GetName() const { return connection_->name; }
PhoXiDeviceType PhoXi::GetType() const { return connection_->type; }
bool PhoXi::SaveLastOutput(const std::string& FilePath, int FrameID) {
  return connection_->SaveLastOutput(FilePath, FrameID);
}

}  // namespace api
}  // namespace pho
