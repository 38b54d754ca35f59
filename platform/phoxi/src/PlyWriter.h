#pragma once
// Writing a frame as a "Photoneo PLY PointCloud" file (Frame::SaveAsPly).
//
// Layout, in header order:
//   ply
//   format binary_little_endian 1.0      ("format ascii 1.0" when not binary)
//   obj_info Photoneo PLY PointCloud ( Width = W; Height = H)   (not when unordered)
//   element vertex N                     (W*H, or the measured points when unordered)
//   property float x / y / z             point cloud
//   property float nx / ny / nz          normal map
//   property uchar red / green / blue    RGB texture: red = r, green = g, blue = b
//   property float Texture32             intensity texture
//   property float Depth32               depth map
//   property float Confidence32          confidence map
//   property float Event32               event map
//   element camera 1                     float view_px .. z_axisz (sensor pose)
//   element phoxi_frame_params 1         uint frame_width frame_height frame_index,
//                                        float frame_start_time frame_duration
//                                        frame_computation_duration frame_transfer_duration
//   element camera_matrix 1              float cm0 .. cm8
//   element distortion_matrix 1          float dm0 .. dm13
//   element camera_resolution 1          float width height
//   element frame_binning 1              float horizontal vertical
//   end_header
// Header lines end in "\n". The six elements after "vertex" are written only
// with metadata; calibration vectors shorter than their element are padded
// with 0, longer ones cut.
//
// Colours: the RGB texture holds 16-bit channels. With NormalizeTexture the
// three channels are scaled together so that the largest channel value of the
// whole map becomes 255 (rounded to nearest; an all-zero map stays zero);
// without it each channel value is written as is, saturated at 255. Texture
// r is written as file red and b as file blue, so a colour texture whose r
// holds red shows its true colours in any PLY viewer.
//
// A map is written when its Store flag is set, it is not empty and it has the
// point cloud's size; other maps are left out. "Measured" (unordered output)
// means a point other than (0, 0, 0). Unordered output is a plain PLY: its
// vertices are no grid, so it carries no identification line, and readers
// (ours included) take it as an unorganised point list.
//
// Speed: vertex records are interleaved into large blocks written with
// fwrite; binary blocks are filled on other CPUs while earlier ones are
// written (PlyVertexBlocks.h). ASCII numbers are formatted with std::to_chars
// (shortest form that reads back to the same float).
#include "PhoXiDataTypes.h"

#include <string>
#include <vector>

namespace pho {
namespace api {
namespace ply_writer {

struct Options {
  bool binary = true;
  bool normalizeTexture = true;
  bool storePointCloud = true;
  bool storeNormalMap = false;
  bool storeDepthMap = false;
  bool storeTexture = true;
  bool storeConfidenceMap = false;
  bool storeEventMap = false;
  bool unordered = false;
  bool metadata = true;
  std::vector<float> cameraMatrix;      // 9
  std::vector<float> distortion;        // 14
  std::vector<float> cameraResolution;  // 2
  std::vector<float> binning;           // 2
};

// Writes `frame` to `path`. False when the frame has no point cloud or the
// file cannot be written completely.
bool Write(const Frame& frame, const std::string& path, const Options& options);

// The file-system path of a wide path: when every code unit fits in a byte
// (including sign-extended chars), byte by byte; otherwise UTF-8.
std::string NarrowPath(const std::wstring& path);

}  // namespace ply_writer
}  // namespace api
}  // namespace pho
