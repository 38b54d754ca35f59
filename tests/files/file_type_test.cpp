// File classification: extension table, Photoneo PLY detection, routing of
// ImportScan and the checks of ImportPhoPly.
#include <tavrin/Files.h>

#include "FilesTestSupport.h"
#include "files/FileType.h"
#include "support/LogCapture.h"
#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace {

using tavrin::FileType;
using tavrin::GetFileType;
using tavrin::IsPhotoneoPly;
using tavrin_test::LogCapture;
using tavrin_test::ScratchDir;

struct TypeCase {
  std::string path;
  std::optional<FileType> type;
};

class GetFileTypeTest : public ::testing::TestWithParam<TypeCase> {};

TEST_P(GetFileTypeTest, UsesTheTextAfterTheLastDotOfTheWholePath) {
  EXPECT_EQ(GetFileType(GetParam().path), GetParam().type) << GetParam().path;
}

INSTANTIATE_TEST_SUITE_P(Paths, GetFileTypeTest,
                         ::testing::Values(TypeCase{"scan.ply", FileType::Ply}, TypeCase{"scan.PLY", FileType::Ply},
                                           TypeCase{"dir/scan.PlY", FileType::Ply},
                                           TypeCase{"scan.praw", FileType::Praw}, TypeCase{"praw", FileType::Praw},
                                           TypeCase{"scan", std::nullopt}, TypeCase{"dir.old/scan", std::nullopt},
                                           TypeCase{"scan.", std::nullopt}, TypeCase{"", std::nullopt},
                                           TypeCase{"a.tar.ZELK", FileType::Zelk}, TypeCase{"x.exr", FileType::Exr},
                                           TypeCase{"x.jpeg", std::nullopt}));

TEST(FileTypeTable, EveryTypeHasItsExtensionAndTheReverseTableInvertsIt) {
  const std::string expected[] = {"praw", "zelk", "ply", "obj", "dae", "stl", "fbx",
                                  "bvh",  "jpg",  "png", "gif", "bmp", "exr"};
  ASSERT_EQ(tavrin::FileTypeExtensions.size(), 13u);
  for (int value = 0; value < 13; ++value) {
    const auto type = static_cast<FileType>(value);
    EXPECT_EQ(tavrin::FileTypeExtensions.at(type), expected[value]);
    EXPECT_EQ(tavrin::ExtensionFileTypes().at(expected[value]), type);
    EXPECT_EQ(GetFileType("file." + expected[value]), type);
  }
  EXPECT_EQ(tavrin::ExtensionFileTypes().size(), 13u);
}

const std::string kPhotoneoHeader =
    "ply\nformat ascii 1.0\nobj_info Photoneo PLY PointCloud ( Width = 2; Height = 1)\n"
    "element vertex 2\nproperty float x\nproperty float y\nproperty float z\nend_header\n1 2 3\n4 5 6\n";

TEST(IsPhotoneoPly, NeedsThePlyExtensionAndTheIdentificationOnTheThirdLine) {
  ScratchDir dir;
  EXPECT_TRUE(IsPhotoneoPly(dir.Write("a.ply", kPhotoneoHeader)));
  EXPECT_TRUE(IsPhotoneoPly(dir.Write("b.PLY", kPhotoneoHeader)));
  EXPECT_TRUE(IsPhotoneoPly(dir.Write("crlf.ply", "ply\r\nformat ascii 1.0\r\nobj_info Photoneo PLY PointCloud\r\n")));
  EXPECT_FALSE(IsPhotoneoPly(dir.Write("c.txt", kPhotoneoHeader)));
  EXPECT_FALSE(IsPhotoneoPly(
      dir.Write("fourth.ply", "ply\nformat ascii 1.0\ncomment x\nobj_info Photoneo PLY PointCloud (Width = 1)\n")));
  EXPECT_FALSE(IsPhotoneoPly(dir.Write("two.ply", "ply\nformat ascii 1.0\n")));
  EXPECT_FALSE(IsPhotoneoPly(dir.Write("case.ply", "ply\nformat ascii 1.0\nobj_info photoneo PLY PointCloud\n")));
  EXPECT_FALSE(IsPhotoneoPly(dir.File("missing.ply")));
  std::filesystem::create_directory(dir.File("folder.ply"));
  EXPECT_FALSE(IsPhotoneoPly(dir.File("folder.ply")));
}

// The probe reads no more than the start of a header: a file without line
// ends can neither exhaust memory nor keep it reading for ever.
TEST(IsPhotoneoPly, EndlessFileWithoutLineEndsIsNoPhotoneoPly) {
  ScratchDir dir;
  const std::string endless = dir.File("endless.ply");
  std::error_code error;
  std::filesystem::create_symlink("/dev/zero", endless, error);
  if (error) GTEST_SKIP() << "no /dev/zero to link to: " << error.message();
  EXPECT_FALSE(IsPhotoneoPly(endless));
}

TEST(IsPhotoneoPly, HeaderLinesAreJudgedWithinTheirBound) {
  ScratchDir dir;
  const std::string identification = "obj_info Photoneo PLY PointCloud\n";
  // A long first line within the bound does not hide the identification on
  // the third line; one beyond it makes the file no header.
  EXPECT_TRUE(IsPhotoneoPly(dir.Write("long.ply", "ply " + std::string(60000, 'x') + "\nformat\n" + identification)));
  EXPECT_FALSE(IsPhotoneoPly(dir.Write("huge.ply", "ply " + std::string(70000, 'x') + "\nformat\n" + identification)));
  // Only the beginning of the third line counts, however long it is.
  EXPECT_TRUE(IsPhotoneoPly(
      dir.Write("tail.ply", "ply\nformat\nobj_info Photoneo PLY PointCloud" + std::string(100000, 'y') + "\n")));
  EXPECT_FALSE(IsPhotoneoPly(dir.Write("short.ply", "ply\nformat\nobj_info Photoneo")));
}

TEST(ImportPhoPly, AMissingFileOrADirectoryIsReportedWithItsPath) {
  ScratchDir dir;
  std::filesystem::create_directory(dir.File("x.ply"));
  for (const std::string& path : {dir.File("x.ply"), std::string("/no/such/scan.ply")}) {
    LogCapture log;
    zelk::Scan scan;
    EXPECT_FALSE(tavrin::ImportPhoPly(path, scan));
    EXPECT_TRUE(log.Has(ulog::Level::Fail, "Can not import scan file \"" + path + "\". File does not exist.",
                        "tavrin::ImportPhoPly"));
    EXPECT_EQ(log.Lines().size(), 1u);
  }
}

TEST(ImportScan, APlyThatIsNotPhotoneoGoesToTheScanLibrary) {
  ScratchDir dir;
  // Identification on the fourth line: not a Photoneo PLY, so the scan
  // library's importer reads it as a plain point list, without a space.
  const std::string path = dir.Write(
      "other.ply", "ply\nformat ascii 1.0\ncomment x\nobj_info Photoneo PLY PointCloud (Width = 2; Height = 1)\n"
                   "element vertex 2\nproperty float x\nproperty float y\nproperty float z\nend_header\n1 1 1\n"
                   "0 0 0\n");
  LogCapture log;
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::ImportScan(scan, path));
  EXPECT_TRUE(log.Empty());
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(2, 1));
  ASSERT_EQ(scan.GetPointCount(), 2u);
  EXPECT_EQ(scan.GetPositions()[1], glm::vec3(0, 0, 0));
  EXPECT_FALSE(scan.HasSpace());
}

}  // namespace
