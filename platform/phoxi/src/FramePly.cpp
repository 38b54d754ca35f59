// Placeholder until the PLY writer lands: reports failure, writes nothing.
#include "PhoXiDataTypes.h"

namespace pho {
namespace api {

bool Frame::SaveAsPly(const std::wstring&, bool, bool, bool, bool, bool, bool, bool, bool, const std::vector<float>&,
                      const std::vector<float>&, const std::vector<float>&, const std::vector<float>&, bool,
                      bool) const {
  return false;
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
