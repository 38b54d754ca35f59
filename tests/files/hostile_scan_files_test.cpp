// Well-formed ".zelk" files that break a rule of the scan model, each made
// from a valid file by one edit of its layout: a well-known property stored
// as another element type (with the bytes to match), or a grid far larger
// than its points. Reading them ends in one clear refusal, before anything
// reads a property as the wrong type or allocates the grid.
#include <tavrin/Files.h>

#include "FilesTestSupport.h"
#include "support/LogCapture.h"
#include "support/ScratchDir.h"

#include <zelk/Exporter.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace {

using tavrin_test::LogCapture;

const char* const kImporter = "zelk::Importer";

struct Edit {
  const char* name;
  std::function<void(tavrin_fuzz::ZelkScanLayout&)> apply;
  std::string reason;  // what the importer says, after "scan 0 of the file "
};

void PrintTo(const Edit& edit, std::ostream* out) { *out << edit.name; }

Edit Retype(const char* name, const std::string& property, zelk::DataType type, const char* reason) {
  return {name, [property, type](tavrin_fuzz::ZelkScanLayout& scan) { scan.Retype(property, type); }, reason};
}

// A grid of width x height around the five points of SampleScan.
Edit Grid(const char* name, std::uint32_t width, std::uint32_t height) {
  return {name,
          [width, height](tavrin_fuzz::ZelkScanLayout& scan) {
            scan.width = width;
            scan.height = height;
          },
          "has a grid of " + std::to_string(width) + " x " + std::to_string(height) +
              " cells for 5 points; a grid may have sides up to 2147483647 and 4194304 cells plus 16 per point."};
}

class HostileScanFile : public ::testing::TestWithParam<Edit> {
protected:
  // `scan` written as a file, with `edit` applied to its layout.
  std::string Write(const zelk::Scan& scan, const std::function<void(tavrin_fuzz::ZelkScanLayout&)>& edit) {
    zelk::Exporter exporter;
    EXPECT_TRUE(exporter.AddScan(scan));
    const std::vector<char> encoded = exporter.Encode();
    const std::string path = dir_.File("scan.zelk");
    std::ofstream(path, std::ios::binary) << files_test::EditedZelk(std::string(encoded.begin(), encoded.end()), edit);
    return path;
  }

  tavrin_test::ScratchDir dir_;
};

TEST_P(HostileScanFile, IsRefusedWithItsReason) {
  const std::string path = Write(files_test::SampleScan(), GetParam().apply);
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(tavrin::ImportScan(scan, path));
  ASSERT_EQ(log.Lines().size(), 1u);
  EXPECT_TRUE(log.Has(ulog::Level::Fail, "Can not load \"" + path + "\": scan 0 of the file " + GetParam().reason, kImporter))
      << log.Lines()[0].message;
  EXPECT_EQ(scan.GetPointCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Classes, HostileScanFile,
    ::testing::Values(
        Retype("ColorsAsColor3b", zelk::PointCloud::COLORS, zelk::DataType::Color3b,
               "stores the property \"colors\" as color3b; it holds color3f."),
        Retype("ColorsAsUInt32", zelk::PointCloud::COLORS, zelk::DataType::UInt32,
               "stores the property \"colors\" as uint32; it holds color3f."),
        Retype("NormalsAsFloat", zelk::PointCloud::NORMALS, zelk::DataType::Float,
               "stores the property \"normals\" as float; it holds vec3f."),
        Retype("IntensitiesAsColor3f", zelk::PointCloud::INTENSITIES, zelk::DataType::Color3f,
               "stores the property \"intensities\" as color3f; it holds float."),
        Grid("Grid16384x16384", 16384, 16384), Grid("Grid6000x6000", 6000, 6000),
        Grid("GridOfMaximalHeight", 4, 0x7FFFFFFF), Grid("NoColumnsButTooManyRows", 0, 0xFFFFFFFF),
        Grid("GridJustBeyondTheLimit", 2048, 2049)),
    [](const ::testing::TestParamInfo<Edit>& info) { return std::string(info.param.name); });

// The limit itself is a scan; a scan beyond it is not written, since it
// could not be read back.
TEST_F(HostileScanFile, TheLargestSparseGridReadsAndNothingLargerIsWritten) {
  zelk::Scan scan;
  ASSERT_TRUE(tavrin::ImportScan(scan, Write(files_test::SampleScan(), Grid("", 2048, 2048).apply)));
  EXPECT_EQ(scan.GetResolution(), glm::uvec2(2048, 2048));
  EXPECT_EQ(scan.GetPointCount(), 5u);

  LogCapture log;
  const std::string beyond = dir_.File("beyond.zelk");
  zelk::Scan tooLarge = files_test::SampleScan();
  tooLarge.SetResolution(glm::uvec2(2048, 2049));
  EXPECT_FALSE(tavrin::ExportScan(beyond, tooLarge));
  EXPECT_TRUE(log.Has(ulog::Level::Fail,
                      "Can not write scan file \"" + beyond +
                          "\". Its grid of 2048 x 2049 cells is too large for 5 points.",
                      "tavrin::ExportScan"));
  EXPECT_FALSE(std::filesystem::exists(beyond));
}

}  // namespace
