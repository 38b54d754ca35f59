// IsPhotoneoPly on hostile input: it reads no more than the start of a
// header, so a file without line ends can neither exhaust memory nor keep it
// reading for ever.
#include <tavrin/Files.h>

#include "support/ScratchDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using tavrin::IsPhotoneoPly;
using tavrin_test::ScratchDir;

const std::string kIdentification = "obj_info Photoneo PLY PointCloud\n";

TEST(PhotoneoPlyProbe, EndlessFileWithoutLineEndsIsNoPhotoneoPly) {
  ScratchDir dir;
  const std::string endless = dir.File("endless.ply");
  std::error_code error;
  std::filesystem::create_symlink("/dev/zero", endless, error);
  if (error) GTEST_SKIP() << "no /dev/zero to link to: " << error.message();
  // Reading whole lines would end in an allocation failure (or the test's
  // time limit); the probe gives up after a header line's worth.
  EXPECT_FALSE(IsPhotoneoPly(endless));
}

TEST(PhotoneoPlyProbe, HeaderLinesAreJudgedWithinTheirBound) {
  ScratchDir dir;
  // A long first line that is still within the bound does not hide the
  // identification on the third line; one beyond it makes the file no header.
  EXPECT_TRUE(IsPhotoneoPly(dir.Write("long.ply", "ply " + std::string(60000, 'x') + "\nformat\n" + kIdentification)));
  EXPECT_FALSE(
      IsPhotoneoPly(dir.Write("huge.ply", "ply " + std::string(70000, 'x') + "\nformat\n" + kIdentification)));
  // Only the beginning of the third line counts, however long it is.
  EXPECT_TRUE(IsPhotoneoPly(
      dir.Write("tail.ply", "ply\nformat\nobj_info Photoneo PLY PointCloud" + std::string(100000, 'y') + "\n")));
  EXPECT_FALSE(IsPhotoneoPly(dir.Write("short.ply", "ply\nformat\nobj_info Photoneo")));
}

}  // namespace
