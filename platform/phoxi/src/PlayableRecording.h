#pragma once
// What PhoXi Control asks of a recording before it plays it as a file camera,
// beyond what the file format itself checks (PrawFile.h): a recording that
// a device could not have made is not played.
#include "PrawFile.h"

#include <string>

namespace pho {
namespace sim {

// True when `recording` has a calibration a device reports (a 3 x 3 camera
// matrix, a distortion list of one of OpenCV's model lengths: 4, 5, 8, 12 or
// 14) and maps that fit on its sensor (the full resolution is a recognised
// one and no map but the colour camera image is larger). False with the
// reason in `reason` otherwise. `recording.frame` must not be null (ReadPraw
// never leaves it so). Pure; reads sizes only.
bool IsPlayable(const PrawRecording& recording, std::string& reason);

}  // namespace sim
}  // namespace pho
