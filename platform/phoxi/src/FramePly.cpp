// Frame::SaveAsPly: both overloads hand over to the PLY writer (PlyWriter.h).
#include "PhoXiDataTypes.h"
#include "PlyWriter.h"

namespace pho {
namespace api {

bool Frame::SaveAsPly(const std::wstring& FilePath, bool BinaryFile, bool NormalizeTexture, bool StorePointCloud,
                      bool StoreNormalMap, bool StoreDepthMap, bool StoreTexture, bool StoreConfidenceMap,
                      bool Unordered, const std::vector<float>& CameraCalibrationMatrix,
                      const std::vector<float>& DistortionCoefficientsMatrix,
                      const std::vector<float>& CameraResolution, const std::vector<float>& CameraBinning,
                      bool Metadata, bool StoreEventMap) const {
  ply_writer::Options options;
  options.binary = BinaryFile;
  options.normalizeTexture = NormalizeTexture;
  options.storePointCloud = StorePointCloud;
  options.storeNormalMap = StoreNormalMap;
  options.storeDepthMap = StoreDepthMap;
  options.storeTexture = StoreTexture;
  options.storeConfidenceMap = StoreConfidenceMap;
  options.storeEventMap = StoreEventMap;
  options.unordered = Unordered;
  options.metadata = Metadata;
  options.cameraMatrix = CameraCalibrationMatrix;
  options.distortion = DistortionCoefficientsMatrix;
  options.cameraResolution = CameraResolution;
  options.binning = CameraBinning;
  return ply_writer::Write(*this, ply_writer::NarrowPath(FilePath), options);
}

bool Frame::SaveAsPly(const std::string& FilePath, bool BinaryFile, bool NormalizeTexture, bool StorePointCloud,
                      bool StoreNormalMap, bool StoreDepthMap, bool StoreTexture, bool StoreConfidenceMap,
                      bool Unordered, const std::vector<float>& CameraCalibrationMatrix,
                      const std::vector<float>& DistortionCoefficientsMatrix,
                      const std::vector<float>& CameraResolution, const std::vector<float>& CameraBinning,
                      bool Metadata, bool StoreEventMap) const {
  return SaveAsPly(std::wstring(FilePath.begin(), FilePath.end()), BinaryFile, NormalizeTexture, StorePointCloud,
                   StoreNormalMap, StoreDepthMap, StoreTexture, StoreConfidenceMap, Unordered,
                   CameraCalibrationMatrix, DistortionCoefficientsMatrix, CameraResolution, CameraBinning, Metadata,
                   StoreEventMap);
}

}  // namespace api
}  // namespace pho
