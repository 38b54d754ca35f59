// Loading a PhoXi raw recording by playing it through PhoXi Control.
#include <tavrin/Files.h>
#include <tavrin/PhoXiDevice.h>

#include "files/PrawAcceptance.h"

#include <ulog/ulog.h>

namespace tavrin {

bool ImportPraw(zelk::Scan& scan, const std::string& path) {
  // A device of its own, torn down on every path: its destructor disconnects
  // and detaches the file camera if Disconnect was not reached.
  PhoXiDevice device;
  if (!device.Connect(PhoXiDevice::FileCamera, path, false, false)) {
    ulog::Fail("Can not connect to PhoXi Control when loading praw.", "tavrin::ImportPraw");
    return false;
  }
  if (!device.CaptureScan(scan, PrawKeepsPoint)) return false;
  return device.Disconnect();
}

}  // namespace tavrin
