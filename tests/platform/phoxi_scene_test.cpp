// Synthetic frames are geometrically true: points lie on the scene and
// reproject onto their pixels, normals are the surfaces' normals, and marker
// space is camera space moved by the reported sensor pose.
#include "PhoxiTestSupport.h"

#include <cmath>

namespace phoxi_test {
namespace {

struct ScaledIntrinsics {
  double fx, fy, cx, cy;
};

// Intrinsics of a frame at `resolution` from the full-resolution calibration,
// scaled the way consumers of the calibration do (single-precision factors).
ScaledIntrinsics Scaled(const api::PhoXiCalibrationSettings& c, const api::PhoXiSize& resolution) {
  const api::PhoXiSize full = sim::FullResolutionOf(resolution);
  float sx = static_cast<float>(resolution.Width) / static_cast<float>(full.Width);
  float sy = static_cast<float>(resolution.Height) / static_cast<float>(full.Height);
  if (resolution == api::PhoXiSize(1032, 772)) sx = sy = 0.5f;
  return {c.CameraMatrix.At(0, 0) * sx, c.CameraMatrix.At(1, 1) * sy, c.CameraMatrix.At(0, 2) * sx,
          c.CameraMatrix.At(1, 2) * sy};
}

bool Measured(const api::Point3_32f& p) { return p.x != 0.0f || p.y != 0.0f || p.z != 0.0f; }

class SceneGeometryTest : public SimTest, public ::testing::WithParamInterface<api::PhoXiSize> {};

// Every third pixel: a measured point lies on the scene, in range, and
// reprojects onto its pixel with its depth; its normal is a unit vector facing
// the camera, the sphere's or the floor's. Unmeasured pixels have neither.
TEST_P(SceneGeometryTest, PointsAndNormalsAreTheScenes) {
  const api::PhoXiSize resolution = GetParam();
  api::PPhoXi handle = Connect(Device("GEO", resolution));
  ASSERT_TRUE(handle);
  const api::PFrame frame = Capture(handle);
  ASSERT_TRUE(frame && frame->Successful);
  ASSERT_EQ(frame->PointCloud.Size, resolution);
  ASSERT_EQ(frame->DepthMap.Size, resolution);
  ASSERT_EQ(frame->NormalMap.Size, resolution);

  const ScaledIntrinsics k = Scaled(handle->CalibrationSettings.GetValue(), resolution);
  int onSpheres = 0;
  int onFloor = 0;
  for (int v = 0; v < resolution.Height; v += 3) {
    for (int u = 0; u < resolution.Width; u += 3) {
      const api::Point3_32f& p = frame->PointCloud.At(v, u);
      const api::Point3_32f& n = frame->NormalMap.At(v, u);
      if (!Measured(p)) {
        ASSERT_EQ(static_cast<float>(frame->DepthMap.At(v, u)), 0.0f) << "unmeasured pixel " << u << "," << v;
        ASSERT_EQ(n, api::Point3_32f(0, 0, 0));
        continue;
      }
      const api::Point3_64f q(p.x, p.y, p.z);
      ASSERT_LT(sim::DistanceToScene(q), 0.01) << "pixel " << u << "," << v;
      ASSERT_NEAR(k.fx * q.x / q.z + k.cx, u, 1e-3) << "pixel " << u << "," << v;
      ASSERT_NEAR(k.fy * q.y / q.z + k.cy, v, 1e-3) << "pixel " << u << "," << v;
      ASSERT_EQ(static_cast<float>(frame->DepthMap.At(v, u)), p.z);
      ASSERT_TRUE(q.z >= sim::Scene().MinRange && q.z <= sim::Scene().MaxRange) << q.z;
      ASSERT_NEAR(std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z), 1.0, 1e-5);
      ASSERT_LT(n.x * p.x + n.y * p.y + n.z * p.z, 0.0f) << "normal faces away at " << u << "," << v;
      for (const sim::SceneSphere& s : sim::Scene().Spheres) {
        const double dx = p.x - s.Centre.x, dy = p.y - s.Centre.y, dz = p.z - s.Centre.z;
        if (std::abs(std::sqrt(dx * dx + dy * dy + dz * dz) - s.Radius) > 1e-3) continue;
        ++onSpheres;
        ASSERT_NEAR(n.x, dx / s.Radius, 1e-4);
        ASSERT_NEAR(n.y, dy / s.Radius, 1e-4);
        ASSERT_NEAR(n.z, dz / s.Radius, 1e-4);
      }
      if (std::abs(p.y - sim::Scene().FloorY) < 1e-3) {
        ++onFloor;
        ASSERT_EQ(n, api::Point3_32f(0, -1, 0));
      }
    }
  }
  EXPECT_GT(onSpheres, 100);  // (with every point on the scene at its pixel: the spheres are in place)
  EXPECT_GT(onFloor, 100);
  // The scene fills a good part of the view but not all of it.
  std::size_t measured = 0;
  for (std::size_t i = 0; i < frame->PointCloud.GetElementsCount(); ++i) {
    measured += Measured(frame->PointCloud.GetDataPtr()[i]) ? 1 : 0;
  }
  const double fraction = static_cast<double>(measured) / static_cast<double>(resolution.Area());
  EXPECT_GT(fraction, 0.2);
  EXPECT_LT(fraction, 0.8);
}

INSTANTIATE_TEST_SUITE_P(AllResolutions, SceneGeometryTest,
                         ::testing::Values(api::PhoXiSize(1680, 1200), api::PhoXiSize(2064, 1544),
                                           api::PhoXiSize(1440, 1080), api::PhoXiSize(1120, 800),
                                           api::PhoXiSize(1032, 772)),
                         [](const ::testing::TestParamInfo<api::PhoXiSize>& info) {
                           return std::to_string(info.param.Width) + "x" + std::to_string(info.param.Height);
                         });

TEST_F(SimTest, FrameCarriesTexturesInTheirRangesAndTheMapsTheOutputSettingsChoose) {
  sim::VirtualDevice device = Device("COLOUR");
  device.Type = api::PhoXiDeviceType::MotionCam3D;
  device.Texture = sim::TextureKind::Colour;
  api::PPhoXi handle = Connect(device);
  ASSERT_TRUE(handle);
  const api::PFrame frame = Capture(handle);
  ASSERT_TRUE(frame);
  ASSERT_EQ(frame->Texture.Size, frame->PointCloud.Size);
  ASSERT_EQ(frame->TextureRGB.Size, frame->PointCloud.Size);
  ASSERT_EQ(frame->ConfidenceMap.Size, frame->PointCloud.Size);
  float maxIntensity = 0.0f;
  for (std::size_t i = 0; i < frame->Texture.GetElementsCount(); ++i) {
    const float t = frame->Texture.GetDataPtr()[i];
    const api::ColorRGB_16 c = frame->TextureRGB.GetDataPtr()[i];
    const float confidence = frame->ConfidenceMap.GetDataPtr()[i];
    ASSERT_GE(t, 0.0f);
    ASSERT_LE(t, 4095.0f);
    ASSERT_LE(std::max(c.r, std::max(c.g, c.b)), 1023);
    ASSERT_EQ(confidence > 0.0f, Measured(frame->PointCloud.GetDataPtr()[i]));
    maxIntensity = std::max(maxIntensity, t);
  }
  EXPECT_GT(maxIntensity, 1000.0f) << "lit surfaces are bright";

  // A grey device sends no colour texture.
  api::PPhoXi grey = Connect(Device("GREY"));
  ASSERT_TRUE(grey);
  const api::PFrame greyFrame = Capture(grey);
  ASSERT_TRUE(greyFrame);
  EXPECT_FALSE(greyFrame->Texture.Empty());
  EXPECT_TRUE(greyFrame->TextureRGB.Empty());

  // The output settings choose the maps, and the info counts the frames.
  grey->OutputSettings->SendNormalMap = false;
  grey->OutputSettings->SendConfidenceMap = false;
  grey->OutputSettings->SendEventMap = true;
  const api::PFrame first = Capture(grey);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->NormalMap.Empty());
  EXPECT_TRUE(first->ConfidenceMap.Empty());
  EXPECT_FALSE(first->EventMap.Empty());
  EXPECT_FALSE(first->PointCloud.Empty());

  // Normals need a positive estimation radius as well.
  grey->OutputSettings->SendNormalMap = true;
  grey->ProcessingSettings->NormalsEstimationRadius = 0;
  api::PFrame next = Capture(grey);
  ASSERT_TRUE(next);
  EXPECT_TRUE(next->NormalMap.Empty());
  EXPECT_EQ(next->Info.FrameIndex, first->Info.FrameIndex + 1);
  EXPECT_EQ(next->Info.TotalScanCount, first->Info.TotalScanCount + 1);
  EXPECT_GE(next->Info.FrameTimestamp, first->Info.FrameTimestamp);
  EXPECT_GT(first->Info.FrameDuration, 0.0);
  EXPECT_GE(first->Info.FrameDuration, first->Info.FrameComputationDuration);
  grey->ProcessingSettings->NormalsEstimationRadius = 3;
  next = Capture(grey);
  ASSERT_TRUE(next);
  EXPECT_FALSE(next->NormalMap.Empty());
}

// Marker space: the same scene moved by the sensor pose that the frame reports.
TEST_F(SimTest, MarkerSpaceFrameIsCameraFrameMovedByARightHandedSensorPose) {
  api::PPhoXi handle = Connect(Device("MARKER"));
  ASSERT_TRUE(handle);
  const api::PFrame camera = Capture(handle);
  ASSERT_TRUE(camera);
  EXPECT_EQ(camera->Info.SensorPosition, api::Point3_64f(0, 0, 0));
  EXPECT_EQ(camera->Info.SensorXAxis, api::Point3_64f(1, 0, 0));
  EXPECT_EQ(camera->Info.SensorZAxis, api::Point3_64f(0, 0, 1));

  handle->CoordinatesSettings->CoordinateSpace = api::PhoXiCoordinateSpace::MarkerSpace;
  handle->CoordinatesSettings->RecognizeMarkers = true;
  const api::PFrame marker = Capture(handle);
  ASSERT_TRUE(marker);
  const api::FrameInfo& info = marker->Info;
  const sim::SensorPose pose = sim::MarkerSensorPose();
  EXPECT_EQ(info.SensorPosition, pose.Position);
  EXPECT_EQ(info.SensorXAxis, pose.XAxis);
  EXPECT_EQ(info.SensorYAxis, pose.YAxis);
  EXPECT_EQ(info.SensorZAxis, pose.ZAxis);
  EXPECT_NE(pose.Position, api::Point3_64f(0, 0, 0)) << "the marker frame must differ from the camera frame";
  // The axes are a right-handed rotation: orthonormal, X x Y = Z.
  auto dot = [](const api::Point3_64f& a, const api::Point3_64f& b) { return a.x * b.x + a.y * b.y + a.z * b.z; };
  const api::Point3_64f* axes[] = {&pose.XAxis, &pose.YAxis, &pose.ZAxis};
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(dot(*axes[i / 3], *axes[i % 3]), i / 3 == i % 3 ? 1.0 : 0.0, 1e-12) << i;
  const api::Point3_64f &x = pose.XAxis, &y = pose.YAxis;
  EXPECT_NEAR(dot(api::Point3_64f(x.y * y.z - x.z * y.y, x.z * y.x - x.x * y.z, x.x * y.y - x.y * y.x), pose.ZAxis),
              1.0, 1e-12);

  // R p + t, with the sensor axes as the columns of R.
  auto move = [&info](const api::Point3_32f& p, double w) {
    const api::Point3_64f &X = info.SensorXAxis, &Y = info.SensorYAxis, &Z = info.SensorZAxis, &t = info.SensorPosition;
    return api::Point3_64f(X.x * p.x + Y.x * p.y + Z.x * p.z + w * t.x, X.y * p.x + Y.y * p.y + Z.y * p.z + w * t.y,
                           X.z * p.x + Y.z * p.y + Z.z * p.z + w * t.z);
  };
  ASSERT_EQ(marker->PointCloud.Size, camera->PointCloud.Size);
  for (std::size_t i = 0; i < camera->PointCloud.GetElementsCount(); i += 7) {
    const api::Point3_32f& p = camera->PointCloud.GetDataPtr()[i];
    const api::Point3_32f& m = marker->PointCloud.GetDataPtr()[i];
    if (!Measured(p)) {
      ASSERT_FALSE(Measured(m));
      continue;
    }
    const api::Point3_64f q = move(p, 1.0), n = move(camera->NormalMap.GetDataPtr()[i], 0.0);
    const api::Point3_32f& mn = marker->NormalMap.GetDataPtr()[i];
    ASSERT_TRUE(std::abs(m.x - q.x) < 1e-3 && std::abs(m.y - q.y) < 1e-3 && std::abs(m.z - q.z) < 1e-3) << i;
    ASSERT_TRUE(std::abs(mn.x - n.x) < 1e-6 && std::abs(mn.y - n.y) < 1e-6 && std::abs(mn.z - n.z) < 1e-6) << i;
  }
  EXPECT_TRUE(SameBytes(camera->DepthMap, marker->DepthMap)) << "depth stays the sensor's";

  // Without marker recognition no marker is found: camera space again.
  handle->CoordinatesSettings->RecognizeMarkers = false;
  const api::PFrame unrecognised = Capture(handle);
  ASSERT_TRUE(unrecognised);
  EXPECT_TRUE(SameBytes(camera->PointCloud, unrecognised->PointCloud));
}

}  // namespace
}  // namespace phoxi_test
