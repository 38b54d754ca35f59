#pragma once
// The simulation's side of one device handle (pho::api::PhoXi). Each handle
// owns one DeviceConnection; all of its operations lock the Simulation, so a
// handle may be used from several threads at once.
//
// A handle is connected while PhoXi Control runs, its device still exists, no
// drop happened since it was made (the device's epoch is unchanged) and it was
// not disconnected.
#include "PhoXi.h"
#include "SimState.h"

#include <cstdint>
#include <string>

namespace pho {
namespace api {
namespace sim {

struct DeviceConnection {
  DeviceConnection(const pho::sim::DeviceEntry& entry);

  // Fixed at connection time.
  const std::uint64_t uid;
  const std::uint64_t epoch;
  const std::string hwId;
  const std::string name;
  const PhoXiDeviceType type;
  const bool isFileCamera;
  bool closed = false;  // guarded by the Simulation mutex

  // The device entry when this handle is connected; requires the lock.
  pho::sim::DeviceEntry* LiveEntry();
  // LiveEntry() for a call of the API: throws std::runtime_error when the
  // device is set to fail its calls. Requires the lock.
  pho::sim::DeviceEntry* CallEntry();
  // Runs `f(entry, error)` under the lock when connected; otherwise fails
  // with "Device is not connected".
  template <class F>
  bool Access(std::string& error, F&& f) {
    auto& sim = pho::sim::Simulation::Instance();
    std::lock_guard<std::mutex> lock(sim.mutex);
    pho::sim::DeviceEntry* entry = CallEntry();
    if (entry == nullptr) {
      error = "Device is not connected";
      return false;
    }
    return f(*entry, error);
  }

  bool IsConnected();
  bool IsAcquiring();
  bool StartAcquisition();
  bool StopAcquisition();
  int ClearBuffer();
  bool Disconnect(bool logOut, bool stopAcquisition);
  void Release();  // the handle is destroyed
  int TriggerFrame();
  PFrame GetFrame(PhoXiTimeout timeout);
  PFrame GetSpecificFrame(int frameId, PhoXiTimeout timeout);
  bool SaveLastOutput(const std::string& path, int frameId);
  bool SetTriggerMode(const PhoXiTriggerMode& mode, std::string& error);

private:
  PFrame Fetch(bool specific, int frameId, PhoXiTimeout timeout);
};

}  // namespace sim
}  // namespace api
}  // namespace pho
