#pragma once
// Capturing scans from a device or from recordings and writing them out.
#include "ScanIO.h"

#include <zelk/Scan.h>

#include <string>
#include <vector>

namespace tavrin_tool {

enum class ScanSource { FirstAttached, Device, Files };
enum class SpaceChoice { Keep, Camera, Marker, Device };

struct CaptureRequest {
  ScanSource source = ScanSource::FirstAttached;
  std::string deviceId;            // ScanSource::Device
  std::vector<std::string> files;  // ScanSource::Files: recordings played as a file camera
  SpaceChoice space = SpaceChoice::Keep;
  bool normals = true;  // false: the device sends no normals (--no-normals)
  bool freeRun = false;
  int count = 1;
  std::string output = "scan.ply";  // .ply, .zelk or .praw; numbered when count > 1
  PlyOptions ply;                   // .ply outputs
};

struct CaptureResult {
  std::vector<std::string> paths;  // files written, in capture order
  zelk::Scan lastScan;
};

// Connects, captures `count` scans, writes each one (".praw": the device's
// own recording of the frame) and prints a summary line per scan ("[i/N] " in
// front when N > 1). ToolError on any failure; files written before the
// failure stay.
CaptureResult RunCapture(const CaptureRequest& request);

// `path` itself for a single scan; otherwise "<stem>_<index><ext>" with the
// index zero-padded to at least three digits ("scan_001.ply").
std::string NumberedPath(const std::string& path, int index, int count);

// Checks that every recording is a readable, non-empty ".praw" file
// (ToolError naming the cause if not).
void CheckRecordings(const std::vector<std::string>& files);

// Prints the summary line on standard output and, when N > 1, "[i/N] <path>"
// on standard error.
void PrintScanLine(int index, int count, const std::string& path, const zelk::Scan& scan, double milliseconds);

}  // namespace tavrin_tool
