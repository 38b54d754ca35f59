#pragma once
// Calibrations a faulty device may report that hold less than GetCameraParams
// reads: camera matrices smaller than 3 x 3 (each with a full distortion
// list, so only the matrix is short), a matrix whose size claims 3 x 3
// without the values, and a distortion list of four coefficients.
#include <PhoXiControl.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

namespace tavrin_test {

struct IncompleteCalibration {
  std::string name;
  pho::api::PhoXiCalibrationSettings settings;
};

inline void PrintTo(const IncompleteCalibration& value, std::ostream* out) { *out << value.name; }

inline std::vector<IncompleteCalibration> IncompleteCalibrations() {
  const pho::api::PhoXiCalibrationSettings full = pho::sim::DefaultCalibration(pho::api::PhoXiSize(2064, 1544));
  std::vector<IncompleteCalibration> cases;
  for (const auto& shape : {std::make_pair(0, 0), std::make_pair(1, 1), std::make_pair(2, 2), std::make_pair(1, 3),
                            std::make_pair(3, 1)}) {
    IncompleteCalibration c{"Matrix" + std::to_string(shape.first) + "x" + std::to_string(shape.second), full};
    c.settings.CameraMatrix.Resize(pho::api::PhoXiSize(shape.second, shape.first));  // width = columns
    std::fill_n(c.settings.CameraMatrix.GetDataPtr(), c.settings.CameraMatrix.GetElementsCount(), 2000.0);
    cases.push_back(c);
  }
  IncompleteCalibration sizeOnly{"MatrixSizeWithoutValues", full};
  sizeOnly.settings.CameraMatrix.Clear();
  sizeOnly.settings.CameraMatrix.Size = pho::api::PhoXiSize(3, 3);
  cases.push_back(sizeOnly);
  IncompleteCalibration fourCoefficients{"FourDistortionCoefficients", full};
  fourCoefficients.settings.DistortionCoefficients.resize(4);
  cases.push_back(fourCoefficients);
  return cases;
}

}  // namespace tavrin_test
