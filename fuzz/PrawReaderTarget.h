#pragma once
// Fuzz target: the ".praw" recording reader of the simulated PhoXi Control
// (the lowest level under tavrin::ImportPraw).
#include "FuzzInput.h"

#include <PrawFile.h>

#include <string>

namespace tavrin_fuzz {

namespace praw_detail {

inline std::size_t MapBytes(const pho::api::Frame& frame) {
  return frame.PointCloud.GetDataSize() + frame.NormalMap.GetDataSize() + frame.DepthMap.GetDataSize() +
         frame.ConfidenceMap.GetDataSize() + frame.Texture.GetDataSize() + frame.TextureRGB.GetDataSize() +
         frame.EventMap.GetDataSize() + frame.ColorCameraImage.GetDataSize();
}

template <class Map>
void CheckMap(const Map& map) {
  if (map.Empty()) return;
  TAVRIN_FUZZ_CHECK(map.Size.Width > 0 && map.Size.Height > 0);
  TAVRIN_FUZZ_CHECK(map.GetElementsCount() == static_cast<std::size_t>(map.Size.Width) * static_cast<std::size_t>(map.Size.Height));
}

// Writes `recording` and returns the file's bytes.
inline std::string Written(const pho::sim::PrawRecording& recording) {
  InputFile target(nullptr, 0);
  std::string error;
  TAVRIN_FUZZ_CHECK(pho::sim::WritePraw(target.Path(), recording, error));
  return ReadAll(target.Path());
}

}  // namespace praw_detail

// True when the bytes read as a recording.
inline bool RunPrawReader(const std::uint8_t* data, std::size_t size) {
  using namespace praw_detail;
  InputFile file(data, size);
  pho::sim::PrawRecording recording;
  std::string error;
  if (!pho::sim::ReadPraw(file.Path(), recording, error)) {
    TAVRIN_FUZZ_CHECK(!error.empty());
    TAVRIN_FUZZ_CHECK(!recording.frame);  // a refused file leaves the record alone
    return false;
  }
  TAVRIN_FUZZ_CHECK(recording.frame != nullptr);
  const pho::api::Frame& frame = *recording.frame;
  CheckMap(frame.PointCloud);
  CheckMap(frame.NormalMap);
  CheckMap(frame.DepthMap);
  CheckMap(frame.ConfidenceMap);
  CheckMap(frame.Texture);
  CheckMap(frame.TextureRGB);
  CheckMap(frame.EventMap);
  CheckMap(frame.ColorCameraImage);
  // Maps come straight from the file: their memory is bounded by its size.
  TAVRIN_FUZZ_CHECK(MapBytes(frame) <= size);
  TAVRIN_FUZZ_CHECK(recording.calibration.DistortionCoefficients.size() * sizeof(double) <= size);

  // What was read writes a file that reads back and writes the same bytes.
  const std::string once = Written(recording);
  TAVRIN_FUZZ_CHECK(!once.empty() && once.size() <= size);
  InputFile copy(reinterpret_cast<const std::uint8_t*>(once.data()), once.size());
  pho::sim::PrawRecording again;
  TAVRIN_FUZZ_CHECK(pho::sim::ReadPraw(copy.Path(), again, error));
  TAVRIN_FUZZ_CHECK(Written(again) == once);
  return true;
}

inline int FuzzPrawReader(const std::uint8_t* data, std::size_t size) {
  RunPrawReader(data, size);
  return 0;
}

}  // namespace tavrin_fuzz
