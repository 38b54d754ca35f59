// The camera pose of the triggered frame as a view matrix.
#include "DeviceTestSupport.h"

#include "device/CameraTransform.h"

#include <glm/gtc/matrix_transform.hpp>

namespace tavrin {
namespace {

void ExpectNear(const glm::mat4& actual, const glm::mat4& expected, float tolerance) {
  for (int c = 0; c < 4; ++c) {
    for (int r = 0; r < 4; ++r) {
      EXPECT_NEAR(actual[c][r], expected[c][r], tolerance) << "column " << c << ", row " << r;
    }
  }
}

glm::vec3 Vec(const pho::api::Point3_64f& p) {
  return glm::vec3(static_cast<float>(p.x), static_cast<float>(p.y), static_cast<float>(p.z));
}

// In marker space the simulated sensor has a pose far from the identity.
class CameraTransformTest : public tavrin_test::ConnectedDeviceTest {
protected:
  void SetUp() override {
    ConnectedDeviceTest::SetUp();
    ASSERT_TRUE(device_.SetMode(PhoXiDevice::MarkerSpace));
    ASSERT_TRUE(device_.Capture());
    frame_ = device_.GetLastManuallyCapturedPFrame();
    ASSERT_TRUE(frame_);
    const pho::api::FrameInfo& info = frame_->Info;
    const glm::vec3 eye = Vec(info.SensorPosition);
    lookAt_ = glm::lookAt(eye, eye + Vec(info.SensorZAxis), -Vec(info.SensorYAxis));
  }

  std::shared_ptr<pho::api::Frame> frame_;
  glm::mat4 lookAt_{1.0f};
};

TEST_F(CameraTransformTest, EachSpaceReexpressesThePlainLookAtMatrix) {
  ASSERT_NE(frame_->Info.SensorPosition, pho::api::Point3_64f(0.0, 0.0, 0.0));
  utils::SpaceDefinition renamed = LookAtSpace;
  renamed.id = "my view space";  // the identifier of the requested space is not compared
  // From y-down/z-forward to y-up/z-backward is diag(1, -1, -1), its own inverse.
  const glm::mat4 flip = glm::scale(glm::mat4(1.0f), glm::vec3(1.0f, -1.0f, -1.0f));
  // "ZELK Camera" has the look-at axes in metres: T = 1000 I.
  glm::mat4 metres = lookAt_;
  metres[3] = glm::vec4(glm::vec3(lookAt_[3]) / 1000.0f, 1.0f);
  const struct {
    const utils::SpaceDefinition* space;
    glm::mat4 expected;
    float tolerance;
  } cases[] = {{&LookAtSpace, lookAt_, 0.0f},
               {&renamed, lookAt_, 0.0f},
               {&PhoXiCameraSpace, flip * lookAt_ * flip, 1e-4f},
               {&ZelkCameraSpace, metres, 1e-4f}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.space->id);
    const std::optional<glm::mat4> transform = device_.GetCameraTransform(*c.space);
    ASSERT_TRUE(transform);
    ExpectNear(*transform, c.expected, c.tolerance);
  }
  // A view matrix: the sensor sits at the origin, looking down -Z.
  const glm::vec4 eye = lookAt_ * glm::vec4(Vec(frame_->Info.SensorPosition), 1.0f);
  EXPECT_NEAR(glm::length(glm::vec3(eye)), 0.0f, 1e-2f);
  EXPECT_NEAR((lookAt_ * glm::vec4(Vec(frame_->Info.SensorZAxis), 0.0f)).z, -1.0f, 1e-5f);
}

TEST(CameraTransform, IdentityPoseLooksAlongPositiveZWithYDown) {
  const pho::api::FrameInfo info;  // sensor at the origin, identity axes
  const glm::mat4 view = SensorLookAt(info);
  const glm::mat4 flip = glm::scale(glm::mat4(1.0f), glm::vec3(1.0f, -1.0f, -1.0f));
  EXPECT_EQ(view, flip);
  // The flip commutes with itself: the correction changes nothing here.
  EXPECT_EQ(LookAtInSpace(view, PhoXiCameraSpace), flip);
}

TEST(CameraTransform, UnknownUnitsOfTheRequestedSpacePropagate) {
  utils::SpaceDefinition odd = PhoXiCameraSpace;
  odd.units = static_cast<utils::Units>(10);
  EXPECT_THROW(LookAtInSpace(glm::mat4(1.0f), odd), std::out_of_range);
}

}  // namespace
}  // namespace tavrin
