#include <zelk/ScanCameraParams.h>
#include <zelk/DataType.h>

#include <gtest/gtest.h>

#include <utility>

namespace {

TEST(ScanCameraParams, DefaultsAreZeroDistortionAndIdentityTransform) {
  const zelk::ScanCameraParams params;
  EXPECT_EQ(params.k1, 0.0f);
  EXPECT_EQ(params.k2, 0.0f);
  EXPECT_EQ(params.k3, 0.0f);
  EXPECT_EQ(params.p1, 0.0f);
  EXPECT_EQ(params.p2, 0.0f);
  EXPECT_EQ(params.transform, glm::mat4(1.0f));
}

TEST(ScanCameraParams, CopyAndMoveCarryEveryField) {
  zelk::ScanCameraParams params;
  params.fx = 1.0f;
  params.fy = 2.0f;
  params.cx = 3.0f;
  params.cy = 4.0f;
  params.k1 = 5.0f;
  params.k2 = 6.0f;
  params.k3 = 7.0f;
  params.p1 = 8.0f;
  params.p2 = 9.0f;
  params.transform[3][0] = 10.0f;
  const zelk::ScanCameraParams copy(params);
  zelk::ScanCameraParams moved(std::move(params));
  const zelk::ScanCameraParams* both[] = {&copy, &moved};
  for (const zelk::ScanCameraParams* p : both) {
    EXPECT_EQ(p->fx, 1.0f);
    EXPECT_EQ(p->fy, 2.0f);
    EXPECT_EQ(p->cx, 3.0f);
    EXPECT_EQ(p->cy, 4.0f);
    EXPECT_EQ(p->k1, 5.0f);
    EXPECT_EQ(p->k2, 6.0f);
    EXPECT_EQ(p->k3, 7.0f);
    EXPECT_EQ(p->p1, 8.0f);
    EXPECT_EQ(p->p2, 9.0f);
    EXPECT_EQ(p->transform[3][0], 10.0f);
  }
}

TEST(DataType, ElementSizes) {
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::Float), 4u);
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::Vec3f), 12u);
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::UInt32), 4u);
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::Color3f), 12u);
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::Color3b), 3u);
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::Unknown), 0u);
  EXPECT_EQ(zelk::DataTypeSize(static_cast<zelk::DataType>(200)), 0u);
  // The numeric values other code relies on.
  EXPECT_EQ(static_cast<int>(zelk::DataType::Float), 1);
  EXPECT_EQ(static_cast<int>(zelk::DataType::Vec3f), 2);
  EXPECT_EQ(static_cast<int>(zelk::DataType::Color3f), 4);
}

}  // namespace
