#pragma once
// PhoXi raw recordings (".praw") as this simulation writes and plays them.
//
// Layout, version 1. All numbers little-endian; no padding anywhere; strings
// are a u32 byte count followed by the bytes (no terminator).
//
//   magic            8 bytes  "PHOXRAW\x1a"
//   version          u32      1
//   deviceType       i32      PhoXiDeviceType value
//   deviceName       string
//   hwIdentification string
//   fullWidth        i32      sensor resolution the calibration is stated for
//   fullHeight       i32
//   texture          u8       0 grey, 1 colour
//   normalsRadius    i32      normals-estimation radius in force
//   -- calibration --
//   matrixRows       i32      (3; 0 when absent)
//   matrixCols       i32
//   matrix           f64 x rows*cols, row-major
//   distortionCount  u32
//   distortion       f64 x count   (OpenCV order)
//   focusLength      f64
//   pixelWidth       f64      micrometres
//   pixelHeight      f64
//   -- coordinates --
//   coordinateSpace  i32      PhoXiCoordinateSpace value
//   recognizeMarkers u8
//   customRotation   f64 x 9, customTranslation f64 x 3
//   robotRotation    f64 x 9, robotTranslation  f64 x 3
//   invertedMarkers  u8, markerScale f64 x 3
//   -- frame --
//   successful       u8
//   frameIndex       u64
//   timestamp, duration, computationDuration, transferDuration   f64 x 4 (ms)
//   sensorPosition, sensorXAxis, sensorYAxis, sensorZAxis        f64 x 12
//   totalScanCount   i64
//   mapCount         u32      8
//   per map, in the Frame's order (PointCloud, NormalMap, DepthMap,
//   ConfidenceMap, Texture, TextureRGB, EventMap, ColorCameraImage):
//     width i32, height i32, elementSize u32 (12, 12, 4, 4, 4, 6, 4, 6),
//     byteCount u64 (= width * height * elementSize; 0 for an empty map),
//     the elements row by row (f32 x,y,z / f32 / u16 r,g,b)
//   end magic        8 bytes  "PHOXEND\x1a"
//
// Maps are stored as raw bytes, so a recording reproduces every map bit for
// bit (NaN payloads included). Readers reject another magic or version,
// inconsistent sizes (byte counts that are not width * height * elementSize,
// maps other than ColorCameraImage of different sizes), a truncated file, any
// count or size that the bytes left cannot hold, and trailing garbage. A read
// allocates no more than the file's size plus small fixed parts.
#include "SimState.h"

#include <string>

namespace pho {
namespace sim {

struct PrawRecording {
  api::PhoXiDeviceType deviceType{api::PhoXiDeviceType::PhoXiScanner};
  std::string deviceName;
  std::string hwIdentification;
  api::PhoXiSize fullResolution;
  TextureKind texture = TextureKind::Grey;
  int normalsEstimationRadius = 0;
  api::PhoXiCalibrationSettings calibration;
  api::PhoXiCoordinatesSettings coordinates;
  api::PFrame frame;  // never null in a recording that was read
};

// Writes `recording` to `path` (replacing it). False with a reason in `error`
// when the frame is missing or the file cannot be written.
bool WritePraw(const std::string& path, const PrawRecording& recording, std::string& error);
// Reads a recording. False with a reason in `error` when the file is missing,
// not a recording of this version or damaged.
bool ReadPraw(const std::string& path, PrawRecording& recording, std::string& error);

}  // namespace sim
}  // namespace pho
