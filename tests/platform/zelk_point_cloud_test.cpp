#include <zelk/PointCloud.h>

#include <gtest/gtest.h>

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

TEST(PointCloud, PropertyNamesAreDistinctAndFixed) {
  EXPECT_NE(zelk::PointCloud::NORMALS, zelk::PointCloud::COLORS);
  EXPECT_NE(zelk::PointCloud::NORMALS, zelk::PointCloud::INTENSITIES);
  EXPECT_NE(zelk::PointCloud::COLORS, zelk::PointCloud::INTENSITIES);
}

TEST(PointCloud, MissingPropertyHasNoData) {
  TestCloud cloud;
  cloud.Append(4);
  EXPECT_EQ(cloud.GetPropertyData(zelk::PointCloud::COLORS), nullptr);
  EXPECT_EQ(cloud.GetPropertyData("nothing"), nullptr);
  EXPECT_EQ(cloud.GetNormals(), nullptr);
  EXPECT_EQ(cloud.GetIntensities(), nullptr);
  EXPECT_EQ(cloud.GetColors(), nullptr);
  EXPECT_FALSE(cloud.HasNormals());
  EXPECT_FALSE(cloud.HasIntensities());
  EXPECT_FALSE(cloud.HasColors());
  const zelk::PointCloud& constCloud = cloud;
  EXPECT_EQ(constCloud.GetPropertyData("nothing"), nullptr);
}

struct PropertyCase {
  std::string name;
  zelk::DataType type;
  std::size_t elementSize;
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
  EXPECT_TRUE(cloud.HasProperty(c.name));
  const auto* bytes = static_cast<const unsigned char*>(cloud.GetPropertyData(c.name));
  ASSERT_NE(bytes, nullptr);
  for (std::size_t i = 0; i < 5 * c.elementSize; ++i) {
    ASSERT_EQ(bytes[i], 0u) << "byte " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Types, PointCloudProperties,
                         ::testing::Values(PropertyCase{"normals", zelk::DataType::Vec3f, 12},
                                           PropertyCase{"intensities", zelk::DataType::Float, 4},
                                           PropertyCase{"colors", zelk::DataType::Color3f, 12},
                                           PropertyCase{"labels", zelk::DataType::UInt32, 4},
                                           PropertyCase{"bytes", zelk::DataType::Color3b, 3}),
                         [](const ::testing::TestParamInfo<PropertyCase>& info) { return info.param.name; });

TEST(PointCloud, StandardPropertyNames) {
  EXPECT_EQ(zelk::PointCloud::NORMALS, "normals");
  EXPECT_EQ(zelk::PointCloud::COLORS, "colors");
  EXPECT_EQ(zelk::PointCloud::INTENSITIES, "intensities");
}

TEST(PointCloud, TypedAccessorsMatchPropertyData) {
  TestCloud cloud;
  cloud.AddNormals();
  cloud.AddIntensities();
  cloud.AddColors();
  cloud.Append(3);
  EXPECT_EQ(static_cast<void*>(cloud.GetNormals()), cloud.GetPropertyData(zelk::PointCloud::NORMALS));
  EXPECT_EQ(static_cast<void*>(cloud.GetIntensities()), cloud.GetPropertyData(zelk::PointCloud::INTENSITIES));
  EXPECT_EQ(static_cast<void*>(cloud.GetColors()), cloud.GetPropertyData(zelk::PointCloud::COLORS));
  EXPECT_TRUE(cloud.HasNormals());
  EXPECT_TRUE(cloud.HasIntensities());
  EXPECT_TRUE(cloud.HasColors());
  EXPECT_EQ(cloud.GetPropertyNames(),
            (std::vector<std::string>{zelk::PointCloud::NORMALS, zelk::PointCloud::INTENSITIES,
                                      zelk::PointCloud::COLORS}));
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

TEST(PointCloud, TypedArraysAreNeverHandedOutAsAnotherType) {
  TestCloud cloud;
  cloud.AddProperty("labels", zelk::DataType::UInt32);
  cloud.AddNormals();
  cloud.Append(3);
  EXPECT_EQ(static_cast<void*>(cloud.GetPropertyArray<std::uint32_t>("labels")), cloud.GetPropertyData("labels"));
  EXPECT_NE(cloud.GetPropertyArray<std::uint32_t>("labels"), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<float>("labels"), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<zelk::Color3b>("labels"), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<zelk::Color3f>(zelk::PointCloud::NORMALS), nullptr);
  EXPECT_EQ(cloud.GetPropertyArray<glm::vec3>("missing"), nullptr);
  const zelk::PointCloud& constCloud = cloud;
  EXPECT_EQ(constCloud.GetPropertyArray<glm::vec3>(zelk::PointCloud::NORMALS), cloud.GetNormals());
  EXPECT_EQ(constCloud.GetPropertyArray<float>(zelk::PointCloud::NORMALS), nullptr);
}

TEST(PointCloud, UnknownDataTypeIsRejected) {
  TestCloud cloud;
  EXPECT_THROW(cloud.AddProperty("bad", zelk::DataType::Unknown), std::invalid_argument);
  EXPECT_THROW(cloud.AddProperty("bad", static_cast<zelk::DataType>(77)), std::invalid_argument);
  EXPECT_FALSE(cloud.HasProperty("bad"));
}

TEST(PointCloud, ReserveCoversPropertiesCreatedLater) {
  TestCloud cloud;
  const std::uint32_t n = 1000;
  cloud.Reserve(n);
  glm::vec3* positions = cloud.GetPositions();
  cloud.AddNormals();
  cloud.AddIntensities();
  glm::vec3* normals = cloud.GetNormals();
  float* intensities = cloud.GetIntensities();
  cloud.AddColors();  // a further property must not move the others
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::uint32_t index = cloud.Append(1);
    ASSERT_EQ(index, i);
    positions[index] = glm::vec3(static_cast<float>(i));
    normals[index] = glm::vec3(0.0f, 0.0f, static_cast<float>(i));
    intensities[index] = static_cast<float>(i) * 2.0f;
  }
  EXPECT_EQ(cloud.GetPositions(), positions);
  EXPECT_EQ(cloud.GetNormals(), normals);
  EXPECT_EQ(cloud.GetIntensities(), intensities);
  EXPECT_EQ(cloud.GetPositions()[n - 1], glm::vec3(static_cast<float>(n - 1)));
  EXPECT_EQ(cloud.GetIntensities()[n - 1], static_cast<float>(n - 1) * 2.0f);
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

TEST(PointCloud, CopyIsDeepAndIndependent) {
  TestCloud source;
  source.AddIntensities();
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

  zelk::PointCloud assigned;
  assigned = copy;
  ExpectPositions(assigned, 100);
  EXPECT_NE(assigned.GetPositions(), copy.GetPositions());
  EXPECT_EQ(assigned.GetIntensities()[42], 4.5f);
}

TEST(PointCloud, CopyKeepsTheReservation) {
  TestCloud source;
  source.Reserve(64);
  TestCloud copy;
  static_cast<zelk::PointCloud&>(copy) = source;
  glm::vec3* positions = copy.GetPositions();
  for (int i = 0; i < 64; ++i) {
    copy.Append(1);
  }
  EXPECT_EQ(copy.GetPositions(), positions);
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

TEST(PointCloud, SpaceCanBeSetAndCleared) {
  zelk::PointCloud cloud;
  EXPECT_FALSE(cloud.HasSpace());
  utils::SpaceDefinition space;
  space.units = utils::Units::Meters;
  cloud.SetSpace(space);
  ASSERT_TRUE(cloud.HasSpace());
  EXPECT_EQ(cloud.GetSpace()->units, utils::Units::Meters);
  cloud.SetSpace(std::nullopt);
  EXPECT_FALSE(cloud.HasSpace());
}

TEST(PointCloudProperty, StandAloneCopyIsDeep) {
  TestCloud cloud;
  cloud.AddIntensities();
  cloud.Append(4);
  cloud.GetIntensities()[3] = 1.25f;
  const zelk::PointCloudProperty& original = *cloud.GetProperty(zelk::PointCloud::INTENSITIES);
  zelk::PointCloudProperty copy(original);
  EXPECT_NE(copy.GetData(), original.GetData());
  EXPECT_EQ(static_cast<const float*>(copy.GetData())[3], 1.25f);
  EXPECT_EQ(copy.GetName(), zelk::PointCloud::INTENSITIES);
}

}  // namespace
