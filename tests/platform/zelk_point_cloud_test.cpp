#include <zelk/Color.h>
#include <zelk/PointCloud.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A cloud that can append points directly (the public way is through Scan).
class TestCloud : public zelk::PointCloud {
public:
  std::uint32_t Append(std::uint32_t count, bool zeroFill = true) { return AppendPoints(count, zeroFill); }
};

void FillPositions(TestCloud& cloud) {
  glm::vec3* positions = cloud.GetPositions();
  for (std::uint32_t i = 0; i < cloud.GetPointCount(); ++i) {
    positions[i] = glm::vec3(static_cast<float>(i), static_cast<float>(i) + 0.5f, -static_cast<float>(i));
  }
}

void ExpectPositions(const zelk::PointCloud& cloud, std::uint32_t count) {
  ASSERT_EQ(cloud.GetPointCount(), count);
  const glm::vec3* positions = cloud.GetPositions();
  for (std::uint32_t i = 0; i < count; ++i) {
    ASSERT_EQ(positions[i], glm::vec3(static_cast<float>(i), static_cast<float>(i) + 0.5f, -static_cast<float>(i)))
        << "point " << i;
  }
}

struct PropertyCase {
  std::string name;
  zelk::DataType type;
  std::size_t elementSize;
  int value;  // the type's number in files
};

class PointCloudProperties : public ::testing::TestWithParam<PropertyCase> {};

TEST_P(PointCloudProperties, AddedPropertyIsZeroForExistingPointsAndReachableByName) {
  const PropertyCase& c = GetParam();
  TestCloud cloud;
  cloud.Append(5);
  const zelk::PointCloudProperty& property = cloud.AddProperty(c.name, c.type);
  EXPECT_EQ(property.GetName(), c.name);
  EXPECT_EQ(property.GetType(), c.type);
  EXPECT_EQ(property.GetElementSize(), c.elementSize);
  EXPECT_EQ(static_cast<int>(c.type), c.value);
  EXPECT_TRUE(cloud.HasProperty(c.name));
  const auto* bytes = static_cast<const unsigned char*>(cloud.GetPropertyData(c.name));
  ASSERT_NE(bytes, nullptr);
  for (std::size_t i = 0; i < 5 * c.elementSize; ++i) {
    ASSERT_EQ(bytes[i], 0u) << "byte " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Types, PointCloudProperties,
                         ::testing::Values(PropertyCase{"normals", zelk::DataType::Vec3f, 12, 2},
                                           PropertyCase{"intensities", zelk::DataType::Float, 4, 1},
                                           PropertyCase{"colors", zelk::DataType::Color3f, 12, 4},
                                           PropertyCase{"labels", zelk::DataType::UInt32, 4, 3},
                                           PropertyCase{"bytes", zelk::DataType::Color3b, 3, 5}),
                         [](const ::testing::TestParamInfo<PropertyCase>& info) { return info.param.name; });

// Missing and unknown properties give no data; typed arrays are the property
// data, and never handed out as another type.
TEST(PointCloud, MissingPropertiesHaveNoDataAndTypedAccessorsMatchTheirTypeOnly) {
  TestCloud cloud;
  cloud.Append(4);
  EXPECT_EQ(zelk::DataTypeSize(zelk::DataType::Unknown), 0u);
  EXPECT_EQ(zelk::DataTypeSize(static_cast<zelk::DataType>(200)), 0u);
  EXPECT_THROW(cloud.AddProperty("bad", zelk::DataType::Unknown), std::invalid_argument);
  EXPECT_THROW(cloud.AddProperty("bad", static_cast<zelk::DataType>(77)), std::invalid_argument);
  EXPECT_FALSE(cloud.HasProperty("bad"));
  EXPECT_EQ(cloud.GetPropertyData(zelk::PointCloud::COLORS), nullptr);
  EXPECT_EQ(cloud.GetPropertyData("nothing"), nullptr);
  EXPECT_TRUE(cloud.GetNormals() == nullptr && cloud.GetIntensities() == nullptr && cloud.GetColors() == nullptr);
  EXPECT_FALSE(cloud.HasNormals() || cloud.HasIntensities() || cloud.HasColors());
  const zelk::PointCloud& constCloud = cloud;
  EXPECT_EQ(constCloud.GetPropertyData("nothing"), nullptr);

  cloud.AddNormals();
  cloud.AddIntensities();
  cloud.AddColors();
  cloud.AddProperty("labels", zelk::DataType::UInt32);
  cloud.Append(3);
  EXPECT_EQ(static_cast<void*>(cloud.GetNormals()), cloud.GetPropertyData(zelk::PointCloud::NORMALS));
  EXPECT_EQ(static_cast<void*>(cloud.GetIntensities()), cloud.GetPropertyData(zelk::PointCloud::INTENSITIES));
  EXPECT_EQ(static_cast<void*>(cloud.GetColors()), cloud.GetPropertyData(zelk::PointCloud::COLORS));
  EXPECT_TRUE(cloud.HasNormals() && cloud.HasIntensities() && cloud.HasColors());
  EXPECT_EQ(cloud.GetPropertyNames(), (std::vector<std::string>{"normals", "intensities", "colors", "labels"}));
  EXPECT_EQ(static_cast<void*>(cloud.GetPropertyArray<std::uint32_t>("labels")), cloud.GetPropertyData("labels"));
  EXPECT_NE(cloud.GetPropertyArray<std::uint32_t>("labels"), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<float>("labels"), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<zelk::Color3b>("labels"), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<zelk::Color3f>(zelk::PointCloud::NORMALS), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<glm::vec3>("missing"), nullptr);
  EXPECT_EQ(constCloud.GetPropertyArray<glm::vec3>(zelk::PointCloud::NORMALS), cloud.GetNormals());
  EXPECT_EQ(constCloud.GetPropertyArray<float>(zelk::PointCloud::NORMALS), nullptr);
}

TEST(PointCloud, AddingAnExistingPropertyKeepsItsTypeAndData) {
  TestCloud cloud;
  cloud.AddProperty("weight", zelk::DataType::Float);
  cloud.Append(2);
  static_cast<float*>(cloud.GetPropertyData("weight"))[1] = 7.0f;
  const zelk::PointCloudProperty& again = cloud.AddProperty("weight", zelk::DataType::Vec3f);
  EXPECT_EQ(again.GetType(), zelk::DataType::Float);
  EXPECT_EQ(static_cast<float*>(cloud.GetPropertyData("weight"))[1], 7.0f);
  EXPECT_EQ(cloud.GetPropertyNames().size(), 1u);
}

// Readers take a well-known array as its defined type, so the cloud never
// holds one of another type.
TEST(PointCloud, WellKnownPropertiesTakeOnlyTheirDefinedType) {
  const std::pair<std::string, zelk::DataType> kWellKnown[] = {{zelk::PointCloud::NORMALS, zelk::DataType::Vec3f},
                                                               {zelk::PointCloud::COLORS, zelk::DataType::Color3f},
                                                               {zelk::PointCloud::INTENSITIES, zelk::DataType::Float}};
  for (const auto& [name, defined] : kWellKnown) {
    EXPECT_EQ(zelk::PointCloud::DefinedType(name), defined) << name;
    for (int type = 1; type <= 5; ++type) {
      TestCloud cloud;
      cloud.Append(2);
      if (static_cast<zelk::DataType>(type) == defined) {
        EXPECT_EQ(cloud.AddProperty(name, defined).GetType(), defined);
      } else {
        EXPECT_THROW(cloud.AddProperty(name, static_cast<zelk::DataType>(type)), std::invalid_argument) << name;
        EXPECT_FALSE(cloud.HasProperty(name)) << name << " as type " << type;
      }
    }
  }
  EXPECT_EQ(zelk::PointCloud::DefinedType("labels"), zelk::DataType::Unknown);
}

// Sizes on both sides of the switch from heap to mapped memory.
class PointCloudGrowth : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(PointCloudGrowth, GrowingKeepsEveryWrittenElement) {
  const std::uint32_t total = GetParam();
  TestCloud cloud;
  cloud.AddIntensities();
  std::uint32_t added = 0;
  std::uint32_t step = 1;
  while (added < total) {
    const std::uint32_t count = std::min(step, total - added);
    ASSERT_EQ(cloud.Append(count, false), added);
    glm::vec3* positions = cloud.GetPositions();
    float* intensities = cloud.GetIntensities();
    for (std::uint32_t i = added; i < added + count; ++i) {
      positions[i] = glm::vec3(static_cast<float>(i), static_cast<float>(i) + 0.5f, -static_cast<float>(i));
      intensities[i] = static_cast<float>(i);
    }
    added += count;
    step *= 3;
  }
  ExpectPositions(cloud, total);
  for (std::uint32_t i = 0; i < total; ++i) {
    ASSERT_EQ(cloud.GetIntensities()[i], static_cast<float>(i));
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, PointCloudGrowth, ::testing::Values(1u, 17u, 1000u, 300000u));

TEST(PointCloud, CopyIsDeepAndIndependentAndKeepsTheReservation) {
  TestCloud source;
  source.AddIntensities();
  source.Reserve(256);
  source.Append(100);
  FillPositions(source);
  source.GetIntensities()[42] = 4.5f;
  utils::SpaceDefinition space;
  space.id = "copied";
  source.SetSpace(space);

  zelk::PointCloud copy(source);
  ExpectPositions(copy, 100);
  EXPECT_NE(copy.GetPositions(), source.GetPositions());
  EXPECT_NE(copy.GetIntensities(), source.GetIntensities());
  EXPECT_EQ(copy.GetIntensities()[42], 4.5f);
  ASSERT_TRUE(copy.HasSpace());
  EXPECT_EQ(copy.GetSpace()->id, "copied");

  source.GetPositions()[0] = glm::vec3(99.0f);
  source.GetIntensities()[42] = 0.0f;
  EXPECT_EQ(copy.GetPositions()[0], glm::vec3(0.0f, 0.5f, -0.0f));
  EXPECT_EQ(copy.GetIntensities()[42], 4.5f);

  TestCloud assigned;
  static_cast<zelk::PointCloud&>(assigned) = copy;
  ExpectPositions(assigned, 100);
  EXPECT_NE(assigned.GetPositions(), copy.GetPositions());
  EXPECT_EQ(assigned.GetIntensities()[42], 4.5f);
  // The reservation is copied too: growing within it moves nothing.
  const glm::vec3* positions = assigned.GetPositions();
  for (int i = 0; i < 156; ++i) assigned.Append(1);
  EXPECT_EQ(assigned.GetPositions(), positions);

  // A property on its own, copied or assigned, owns a copy of the elements.
  const zelk::PointCloudProperty& original = *copy.GetProperty(zelk::PointCloud::INTENSITIES);
  const zelk::PointCloudProperty alone(original);
  zelk::PointCloudProperty reassigned("labels", zelk::DataType::UInt32);
  reassigned = original;
  for (const zelk::PointCloudProperty* property : {&alone, static_cast<const zelk::PointCloudProperty*>(&reassigned)}) {
    EXPECT_EQ(property->GetName(), zelk::PointCloud::INTENSITIES);
    EXPECT_EQ(property->GetType(), zelk::DataType::Float);
    ASSERT_NE(property->GetData(), nullptr);
    EXPECT_NE(property->GetData(), original.GetData());
    EXPECT_EQ(static_cast<const float*>(property->GetData())[42], 4.5f);
  }
}

TEST(PointCloud, MoveTransfersArraysAndEmptiesTheSource) {
  TestCloud source;
  source.AddNormals();
  source.Append(10);
  FillPositions(source);
  const glm::vec3* positions = source.GetPositions();

  zelk::PointCloud moved(std::move(source));
  EXPECT_EQ(moved.GetPositions(), positions);
  ExpectPositions(moved, 10);
  EXPECT_TRUE(moved.HasNormals());
  EXPECT_EQ(source.GetPointCount(), 0u);  // NOLINT(bugprone-use-after-move): state after move is specified
  EXPECT_FALSE(source.HasNormals());

  // A moved-from cloud is usable again.
  EXPECT_EQ(source.Append(3), 0u);
  EXPECT_EQ(source.GetPointCount(), 3u);
  EXPECT_EQ(source.GetPositions()[2], glm::vec3(0.0f));
}

// The conversion back to 8 bits used by the point-cloud writers: x 255,
// round to nearest, clamp.
unsigned char ToByte(float channel) {
  return static_cast<unsigned char>(std::clamp(std::round(channel * 255.0f), 0.0f, 255.0f));
}

TEST(Color3f, FromBytesIsChannelOver255AndEveryByteSurvivesTheWayBack) {
  const zelk::Color3f f(zelk::Color3b(255, 0, 51));
  EXPECT_EQ(f.r, 1.0f);
  EXPECT_EQ(f.g, 0.0f);
  EXPECT_EQ(f.b, 51.0f / 255.0f);
  for (int v = 0; v <= 255; ++v) {
    const auto byte = static_cast<unsigned char>(v);
    const zelk::Color3f c(zelk::Color3b(byte, static_cast<unsigned char>(255 - v), byte));
    ASSERT_TRUE(c.r >= 0.0f && c.r <= 1.0f) << v;
    ASSERT_EQ(ToByte(c.r), v);
    ASSERT_EQ(ToByte(c.g), 255 - v);
    ASSERT_EQ(ToByte(c.b), v);
  }
}

}  // namespace
