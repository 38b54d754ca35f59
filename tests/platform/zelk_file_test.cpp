// ".zelk" files: bit-exact round trips of everything a scan holds, and
// refusal (never a crash) of truncated or corrupt files.
#include <zelk/Exporter.h>
#include <zelk/Importer.h>

#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using tavrin_test::ScratchDir;

// The bytes of a value or an array, so NaN payloads and -0 count.
std::string Bytes(const void* data, std::size_t n) {
  return n == 0 ? std::string() : std::string(static_cast<const char*>(data), n);
}
template <class T>
std::string Bytes(const T& value) {
  return Bytes(&value, sizeof value);
}

utils::SpaceDefinition OddSpace() {
  utils::SpaceDefinition space;
  space.id = "robot cell 7";
  space.up = utils::Axis::NegativeZ;
  space.forward = utils::Axis::PositiveX;
  space.handedness = utils::Handedness::Left;
  space.category = utils::SpaceCategory::Marker;
  space.units = utils::Units::Inches;
  return space;
}

// A scan with every kind of content, including NaN payloads and negative zero.
zelk::Scan RichScan(unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(-1000.0f, 1000.0f);
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(16, 9));
  std::vector<glm::uvec2> cells;
  for (unsigned i = 0; i < 40; ++i) cells.emplace_back((i * 7) % 16, (i * 5) % 9);
  const std::uint32_t first = scan.AddPointsAt(cells);
  EXPECT_EQ(first, 0u);
  glm::vec3* positions = scan.GetPositions();
  for (std::uint32_t i = 0; i < 40; ++i) positions[i] = glm::vec3(value(random), value(random), value(random));
  std::uint32_t nanBits = 0x7FC01234u;
  std::memcpy(&positions[3].x, &nanBits, 4);
  positions[4].y = -0.0f;
  scan.AddNormals();
  scan.AddIntensities();
  scan.AddColors();
  scan.AddProperty("labels", zelk::DataType::UInt32);
  scan.AddProperty("raw colours", zelk::DataType::Color3b);
  for (std::uint32_t i = 0; i < 40; ++i) {
    scan.GetNormals()[i] = glm::vec3(0, 0.6f, -0.8f);
    scan.GetIntensities()[i] = value(random);
    scan.GetColors()[i] = zelk::Color3f(0.25f, 0.5f, value(random));
    static_cast<std::uint32_t*>(scan.GetPropertyData("labels"))[i] = random();
    static_cast<zelk::Color3b*>(scan.GetPropertyData("raw colours"))[i] = zelk::Color3b(1, 2, 3);
  }
  zelk::ScanCameraParams params;
  const float values[] = {2200.5f, 2201.25f, 1030.0f, 770.5f, 0.1f, -0.2f, 0.3f, 0.004f, -0.005f};
  float* const fields[] = {&params.fx, &params.fy, &params.cx, &params.cy, &params.k1,
                           &params.k2, &params.k3, &params.p1, &params.p2};
  for (std::size_t i = 0; i < std::size(fields); ++i) *fields[i] = values[i];
  params.transform[3] = glm::vec4(1, 2, 3, 1);
  scan.SetCameraParams(params);
  scan.SetCameraPosition(glm::vec3(10, -20, 30.5f));
  utils::BasisDefinition basisDefinition;
  basisDefinition.id = "PhoXi Camera";
  basisDefinition.up = utils::Axis::NegativeY;
  glm::mat3 basis(0, 1, 0, -1, 0, 0, 0, 0, 1);
  scan.SetCameraBasis(basis, basisDefinition);
  scan.SetTimestamp(1234567.890625);
  scan.SetSpace(OddSpace());
  return scan;
}

void ExpectSameScan(const zelk::Scan& a, const zelk::Scan& b) {
  ASSERT_EQ(a.GetResolution(), b.GetResolution());
  const std::uint32_t n = a.GetPointCount();
  ASSERT_EQ(n, b.GetPointCount());
  EXPECT_EQ(a.GetCoords(), b.GetCoords());
  EXPECT_EQ(Bytes(a.GetPositions(), n * sizeof(glm::vec3)), Bytes(b.GetPositions(), n * sizeof(glm::vec3)));
  ASSERT_EQ(a.GetPropertyNames(), b.GetPropertyNames());
  for (const std::string& name : a.GetPropertyNames()) {
    const zelk::PointCloudProperty* pa = a.GetProperty(name);
    const zelk::PointCloudProperty* pb = b.GetProperty(name);
    EXPECT_EQ(pa->GetType(), pb->GetType()) << name;
    EXPECT_EQ(Bytes(pa->GetData(), n * pa->GetElementSize()), Bytes(pb->GetData(), n * pb->GetElementSize())) << name;
  }
  // The camera, its basis and convention, and the time.
  auto camera = [](const zelk::Scan& s) {
    const zelk::ScanCameraParams& c = s.GetCameraParams();
    const utils::BasisDefinition& d = s.GetCameraBasisDefinition();
    const float params[] = {c.fx, c.fy, c.cx, c.cy, c.k1, c.k2, c.k3, c.p1, c.p2};
    const utils::Axis axes[] = {d.up, d.forward};
    return Bytes(params) + Bytes(c.transform) + Bytes(s.GetCameraPosition()) + Bytes(s.GetCameraBasis(d)) + d.id +
           Bytes(axes) + Bytes(d.handedness) + (s.GetTimestamp() ? Bytes(*s.GetTimestamp()) : "none");
  };
  EXPECT_TRUE(camera(a) == camera(b));
  ASSERT_EQ(a.HasSpace(), b.HasSpace());
  if (a.HasSpace()) {
    EXPECT_EQ(a.GetSpace()->id, b.GetSpace()->id);
    EXPECT_TRUE(utils::IsSameSpace(*a.GetSpace(), *b.GetSpace()));
  }
}

TEST(ZelkFile, RoundTripIsBitExactForEveryScanInTheFile) {
  const zelk::Scan first = RichScan(1);
  zelk::Scan second;  // no points, no timestamp, no space
  second.SetResolution(glm::uvec2(3, 2));
  const zelk::Scan third = RichScan(2);
  zelk::Exporter exporter;
  exporter.AddScan(first);
  exporter.AddScan(second);
  exporter.AddScan(third);
  EXPECT_EQ(exporter.GetScanCount(), 3u);
  ScratchDir dir;
  ASSERT_TRUE(exporter.SaveFile(dir.File("scans.zelk")));

  zelk::Importer importer;
  ASSERT_TRUE(importer.LoadFile(dir.File("scans.zelk")));
  ASSERT_EQ(importer.GetScanCount(), 3u);
  zelk::Scan read = RichScan(9);  // replaced completely
  ASSERT_TRUE(importer.GetScan(read, 0));
  ExpectSameScan(first, read);
  ASSERT_TRUE(importer.GetScan(read, 1));
  ExpectSameScan(second, read);
  ASSERT_TRUE(importer.GetScan(read, 2));
  ExpectSameScan(third, read);
  EXPECT_FALSE(importer.GetScan(read, 3));
}

TEST(ZelkFile, SavedBytesStartWithMagicVersionAndCount) {
  zelk::Exporter exporter;
  const std::vector<char> empty = exporter.Encode();
  const char expected[] = {'Z', 'E', 'L', 'K', 'S', 'C', 'A', 'N', 1, 0, 0, 0, 0, 0, 0, 0};
  ASSERT_EQ(empty.size(), sizeof(expected));
  EXPECT_EQ(std::memcmp(empty.data(), expected, sizeof(expected)), 0);
  zelk::Importer importer;
  EXPECT_TRUE(importer.LoadMemory(empty.data(), empty.size()));
  EXPECT_EQ(importer.GetScanCount(), 0u);
}

std::vector<char> EncodedRichScan() {
  zelk::Exporter exporter;
  exporter.AddScan(RichScan(3));
  return exporter.Encode();
}

TEST(ZelkFileCorruption, EveryTruncationTrailingByteForeignMagicAndVersionIsRefused) {
  const std::vector<char> bytes = EncodedRichScan();
  zelk::Importer importer;
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(importer.LoadMemory(bytes.data(), size)) << size;
    EXPECT_EQ(importer.GetScanCount(), 0u);
  }
  EXPECT_TRUE(importer.LoadMemory(bytes.data(), bytes.size()));
  std::vector<char> longer = bytes, magic = bytes, version = bytes;
  longer.push_back(0);
  magic[0] = 'z';
  version[8] = 2;
  for (const std::vector<char>* damaged : {&longer, &magic, &version}) {
    EXPECT_FALSE(importer.LoadMemory(damaged->data(), damaged->size()));
  }
}

// Offsets of the first scan: 16 bytes of file header, then width, height, count.
constexpr std::size_t kScan = 16;

TEST(ZelkFileCorruption, InconsistentContentIsRefused) {
  const std::vector<char> bytes = EncodedRichScan();
  zelk::Importer importer;
  auto refused = [&](std::size_t offset, std::uint32_t value) {
    std::vector<char> corrupt = bytes;
    std::memcpy(corrupt.data() + offset, &value, 4);
    return !importer.LoadMemory(corrupt.data(), corrupt.size());
  };
  EXPECT_TRUE(refused(kScan, 2));                    // width 2: cells outside the grid
  EXPECT_TRUE(refused(kScan + 8, 0xFFFFFFFFu));      // more points than bytes
  EXPECT_TRUE(refused(kScan + 12, 99));              // a cell x outside the grid
  const std::size_t properties = kScan + 12 + 40 * 8 + 40 * 12;
  EXPECT_TRUE(refused(properties, 1000));            // more properties than present
  // First property: name length, name, type byte.
  std::uint32_t nameLength = 0;
  std::memcpy(&nameLength, bytes.data() + properties + 4, 4);
  std::vector<char> type = bytes;
  type[properties + 8 + nameLength] = 9;  // unknown data type
  EXPECT_FALSE(importer.LoadMemory(type.data(), type.size()));
  EXPECT_TRUE(refused(properties + 8 + nameLength + 1, 7));  // element size not the type's
}

TEST(ZelkFileCorruption, RandomDamageNeverCrashes) {
  const std::vector<char> bytes = EncodedRichScan();
  std::mt19937 random(7);
  zelk::Importer importer;
  zelk::Scan scan;
  for (int round = 0; round < 2000; ++round) {
    std::vector<char> damaged = bytes;
    const int flips = 1 + round % 4;
    for (int f = 0; f < flips; ++f) {
      damaged[random() % damaged.size()] = static_cast<char>(random());
    }
    if (importer.LoadMemory(damaged.data(), damaged.size())) {
      EXPECT_TRUE(importer.GetScan(scan, 0));
    }
  }
}

// The importer refuses grids larger than their points allow, so the exporter
// does not write them: every file it writes reads back.
TEST(ZelkFile, ExporterRefusesAGridTooLargeForItsPoints) {
  zelk::Scan scan;
  scan.SetResolution(glm::uvec2(2048, 2049));
  ASSERT_EQ(scan.AddPointAt(5, 7), 0u);
  zelk::Exporter exporter;
  EXPECT_FALSE(exporter.AddScan(scan));
  EXPECT_EQ(exporter.GetScanCount(), 0u);
  scan.SetResolution(glm::uvec2(2048, 2048));
  EXPECT_TRUE(exporter.AddScan(scan));
  const std::vector<char> bytes = exporter.Encode();
  zelk::Importer importer;
  EXPECT_TRUE(importer.LoadMemory(bytes.data(), bytes.size()));
}

TEST(ZelkFileCorruption, MissingPathsAndDirectoriesAreRefused) {
  ScratchDir dir;
  zelk::Importer importer;
  EXPECT_FALSE(importer.LoadFile(dir.File("missing.zelk")));
  std::filesystem::create_directory(dir.File("folder.zelk"));
  EXPECT_FALSE(importer.LoadFile(dir.File("folder.zelk")));
  zelk::Exporter exporter;
  EXPECT_FALSE(exporter.SaveFile(dir.File("no/such/dir/x.zelk")));
}

}  // namespace
