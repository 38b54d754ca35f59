#pragma once
// Fuzz target: tavrin::ImportPraw, the whole road of a recording through the
// simulated PhoXi Control (attach as a file camera, connect, capture, convert,
// disconnect, detach).
#include "FuzzInput.h"

#include <tavrin/Files.h>

#include "files/PrawAcceptance.h"

#include <PhoXiControl.h>

#include <string>
#include <vector>

namespace tavrin_fuzz {

// True when the recording gave a scan.
inline bool RunImportPraw(const std::uint8_t* data, std::size_t size) {
  InputFile file(data, size);
  const std::vector<std::string> devicesBefore = pho::sim::ListDevices();
  zelk::Scan scan;
  const bool imported = tavrin::ImportPraw(scan, file.Path());
  // Nothing of the file camera outlives the import, whatever its outcome.
  TAVRIN_FUZZ_CHECK(pho::sim::ListDevices() == devicesBefore);
  if (!imported) return false;
  TAVRIN_FUZZ_CHECK(scan.GetCoords().size() == scan.GetPointCount());
  TAVRIN_FUZZ_CHECK(static_cast<std::uint64_t>(scan.GetPointCount()) * 12 <= size);
  for (std::uint32_t i = 0; i < scan.GetPointCount(); ++i) {
    TAVRIN_FUZZ_CHECK(scan.GetCoords()[i].x < scan.GetWidth() && scan.GetCoords()[i].y < scan.GetHeight());
    TAVRIN_FUZZ_CHECK(tavrin::PrawKeepsPoint(scan.GetPositions()[i]));
  }
  return true;
}

inline int FuzzImportPraw(const std::uint8_t* data, std::size_t size) {
  RunImportPraw(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
