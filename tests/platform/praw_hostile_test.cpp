// Hostile ".praw" recordings: every count or size in the file is checked
// against the bytes left before anything is allocated, and every way of
// spoiling a file ends in a refused read, never a crash or a huge allocation.
#include <PhoXi.h>
#include <PhoXiControl.h>
#include <PrawFile.h>

#include "support/ScratchDir.h"
#include "support/SimulatorFixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace {

namespace api = pho::api;
namespace sim = pho::sim;

struct MapHeader {
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::uint32_t elementSize = 0;
  std::uint64_t byteCount = 0;
  std::uint64_t dataBytes = 0;  // bytes actually following
};

// The fields of a recording as they go to disk, each one open to damage.
struct Layout {
  std::uint32_t nameLength = 4;  // of "name"
  std::int32_t matrixRows = 3;
  std::int32_t matrixCols = 3;
  std::uint32_t distortionCount = 5;
  std::int32_t sensorWidth = 1680;  // the full resolution the calibration is for
  std::int32_t sensorHeight = 1200;
  double calibrationValue = 1.0;  // every matrix entry and coefficient
  float pointValue = 1.0f;        // every point cloud component
  MapHeader maps[8];

  Layout() {
    const std::uint32_t sizes[8] = {12, 12, 4, 4, 4, 6, 4, 6};
    for (int i = 0; i < 8; ++i) maps[i].elementSize = sizes[i];
    SetMap(0, 2, 2);
  }
  void SetMap(int index, std::int32_t width, std::int32_t height) {
    MapHeader& map = maps[index];
    map.width = width;
    map.height = height;
    map.byteCount = std::uint64_t(width) * std::uint64_t(height) * map.elementSize;
    map.dataBytes = map.byteCount;
  }
};

template <class T>
void Put(std::string& out, T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.append(bytes, sizeof(T));
}

std::string Encode(const Layout& l) {
  std::string out("PHOXRAW\x1a", 8);
  Put<std::uint32_t>(out, 1);
  Put<std::int32_t>(out, 1);  // device type
  Put<std::uint32_t>(out, l.nameLength);
  out += "name";
  Put<std::uint32_t>(out, 2);
  out += "hw";
  Put<std::int32_t>(out, l.sensorWidth);
  Put<std::int32_t>(out, l.sensorHeight);
  Put<std::uint8_t>(out, 0);
  Put<std::int32_t>(out, 2);
  Put<std::int32_t>(out, l.matrixRows);
  Put<std::int32_t>(out, l.matrixCols);
  // Absurd counts get a few values only: the reader must refuse them anyway.
  for (int i = 0; i < l.matrixRows * l.matrixCols && i < 256; ++i) Put<double>(out, l.calibrationValue);
  Put<std::uint32_t>(out, l.distortionCount);
  for (std::uint32_t i = 0; i < l.distortionCount && i < 64; ++i) Put<double>(out, l.calibrationValue);
  for (int i = 0; i < 3; ++i) Put<double>(out, 6.0);  // focus length, pixel size
  Put<std::int32_t>(out, 1);                          // coordinate space
  Put<std::uint8_t>(out, 0);
  for (int i = 0; i < 24; ++i) Put<double>(out, i % 4 == 0 ? 1.0 : 0.0);  // two transformations
  Put<std::uint8_t>(out, 0);
  for (int i = 0; i < 3; ++i) Put<double>(out, 1.0);  // marker scale
  Put<std::uint8_t>(out, 1);                          // successful
  Put<std::uint64_t>(out, 7);                         // frame index
  for (int i = 0; i < 16; ++i) Put<double>(out, 0.0);  // times and sensor pose
  Put<std::int64_t>(out, 1);
  Put<std::uint32_t>(out, 8);
  for (int m = 0; m < 8; ++m) {
    const MapHeader& map = l.maps[m];
    Put(out, map.width);
    Put(out, map.height);
    Put(out, map.elementSize);
    Put(out, map.byteCount);
    if (map.elementSize % 4 == 0) {
      for (std::uint64_t b = 0; b < map.dataBytes; b += 4) Put<float>(out, m == 0 ? l.pointValue : 0.5f);
    } else {
      out.append(map.dataBytes, '\x01');  // 16-bit colour channels
    }
  }
  out.append("PHOXEND\x1a", 8);
  return out;
}

class HostileRecordingTest : public tavrin_test::DeviceTest {
protected:
  // Reads `bytes` as a recording; on failure checks that a reason is given
  // and the record is left alone.
  bool Read(const std::string& bytes) {
    const std::string path = dir_.Write("take.praw", bytes);
    recording_ = sim::PrawRecording();
    error_.clear();
    const bool read = sim::ReadPraw(path, recording_, error_);
    if (!read) {
      EXPECT_FALSE(error_.empty());
      EXPECT_FALSE(recording_.frame);
    }
    return read;
  }

  tavrin_test::ScratchDir dir_;
  sim::PrawRecording recording_;
  std::string error_;
};

TEST_F(HostileRecordingTest, TheHandWrittenLayoutIsAValidRecording) {
  ASSERT_TRUE(Read(Encode(Layout()))) << error_;
  EXPECT_EQ(recording_.deviceName, "name");
  EXPECT_EQ(recording_.frame->PointCloud.Size, api::PhoXiSize(2, 2));
  EXPECT_EQ(recording_.calibration.DistortionCoefficients.size(), 5u);
  // The colour camera image may have a size of its own.
  Layout layout;
  layout.SetMap(1, 2, 2);
  layout.SetMap(7, 1, 1);
  ASSERT_TRUE(Read(Encode(layout))) << error_;
  EXPECT_EQ(recording_.frame->ColorCameraImage.Size, api::PhoXiSize(1, 1));
}

TEST_F(HostileRecordingTest, EveryTruncationTrailingByteForeignHeaderAndDirectoryIsRefused) {
  const std::string bytes = Encode(Layout());
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    EXPECT_FALSE(Read(bytes.substr(0, n))) << "first " << n << " bytes";
  }
  EXPECT_FALSE(Read(bytes + "x"));
  EXPECT_FALSE(Read("Q" + bytes.substr(1))) << "magic";
  EXPECT_FALSE(Read(bytes.substr(0, 8) + '\x02' + bytes.substr(9))) << "version 2";
  recording_ = sim::PrawRecording();
  EXPECT_FALSE(sim::ReadPraw(dir_.Path(), recording_, error_)) << "a directory";
  EXPECT_FALSE(error_.empty());
  EXPECT_FALSE(recording_.frame);
}

struct Spoiler {
  const char* name;
  void (*apply)(Layout&);
};

class SpoiledRecordingTest : public HostileRecordingTest, public ::testing::WithParamInterface<Spoiler> {};

TEST_P(SpoiledRecordingTest, IsRefused) {
  Layout layout;
  GetParam().apply(layout);
  EXPECT_FALSE(Read(Encode(layout)));
}

INSTANTIATE_TEST_SUITE_P(
    Counts, SpoiledRecordingTest,
    ::testing::Values(
        Spoiler{"NameLongerThanTheFile", [](Layout& l) { l.nameLength = 0xFFFFFFF0u; }},
        Spoiler{"NameLengthPastTheEnd", [](Layout& l) { l.nameLength = 5000; }},
        Spoiler{"AbsurdDistortionCount", [](Layout& l) { l.distortionCount = 0xFFFFFFFFu; }},
        Spoiler{"NegativeMatrixRows", [](Layout& l) { l.matrixRows = -3; }},
        Spoiler{"HugeMatrix", [](Layout& l) { l.matrixRows = 1 << 20; }},
        // 50000 x 50000 points would be 30 GB; the file holds 48 bytes.
        Spoiler{"MapLargerThanTheFile",
                [](Layout& l) {
                  l.maps[0].width = l.maps[0].height = 50000;
                  l.maps[0].byteCount = 50000ull * 50000ull * 12;
                }},
        Spoiler{"MapByteCountDisagreesWithItsSize", [](Layout& l) { l.maps[0].byteCount = 36; }},
        Spoiler{"MapByteCountNotWholeElements",
                [](Layout& l) {
                  l.maps[0].byteCount = 47;
                  l.maps[0].dataBytes = 48;
                }},
        Spoiler{"NegativeMapWidth", [](Layout& l) { l.maps[0].width = -2; }},
        Spoiler{"PointsOfAnotherElementSize",
                [](Layout& l) {
                  l.maps[0].elementSize = 16;
                  l.SetMap(0, 2, 2);
                }},
        Spoiler{"ByteCountBeyondSixtyFourBits",
                [](Layout& l) {
                  l.maps[0].width = l.maps[0].height = 0x7FFFFFFF;
                  l.maps[0].byteCount = 0xFFFFFFFFFFFFFFF4ull;
                }},
        Spoiler{"NormalMapOfAnotherSize", [](Layout& l) { l.SetMap(1, 1, 4); }},
        Spoiler{"DepthMapWithoutPointCloudOfAnotherSize",
                [](Layout& l) {
                  l.SetMap(0, 0, 0);
                  l.SetMap(2, 2, 2);
                  l.SetMap(4, 4, 1);
                }}),
    [](const ::testing::TestParamInfo<Spoiler>& info) { return std::string(info.param.name); });

// Recordings that read, but that PhoXi Control does not play as a file
// camera: no device reports such a calibration or such maps.
class PlayedRecordingTest : public HostileRecordingTest, public ::testing::WithParamInterface<Spoiler> {
protected:
  // The attached camera's name, empty when the recording was refused.
  std::string Attach(const Layout& layout) {
    EXPECT_TRUE(Read(Encode(layout))) << error_;
    api::PhoXiFactory factory;
    return factory.AttachFileCamera("take", {dir_.File("take.praw")});
  }
};

TEST_P(PlayedRecordingTest, UnplayableRecordingIsNotAttached) {
  Layout layout;
  GetParam().apply(layout);
  EXPECT_EQ(Attach(layout), "");
  EXPECT_TRUE(sim::ListDevices().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Unplayable, PlayedRecordingTest,
    ::testing::Values(
        Spoiler{"NoCameraMatrix", [](Layout& l) { l.matrixRows = l.matrixCols = 0; }},
        Spoiler{"Matrix1x1", [](Layout& l) { l.matrixRows = l.matrixCols = 1; }},
        Spoiler{"Matrix2x2", [](Layout& l) { l.matrixRows = l.matrixCols = 2; }},
        Spoiler{"Matrix1x3", [](Layout& l) { l.matrixRows = 1; }},
        Spoiler{"Matrix3x1", [](Layout& l) { l.matrixCols = 1; }},
        Spoiler{"Matrix4x4", [](Layout& l) { l.matrixRows = l.matrixCols = 4; }},
        Spoiler{"NoDistortion", [](Layout& l) { l.distortionCount = 0; }},
        Spoiler{"ThreeCoefficients", [](Layout& l) { l.distortionCount = 3; }},
        Spoiler{"FifteenCoefficients", [](Layout& l) { l.distortionCount = 15; }},
        Spoiler{"UnknownSensor",
                [](Layout& l) {
                  l.sensorWidth = 2;
                  l.sensorHeight = 2;
                }},
        Spoiler{"ReducedResolutionAsSensor",
                [](Layout& l) {
                  l.sensorWidth = 1032;
                  l.sensorHeight = 772;
                }},
        Spoiler{"PointCloudWiderThanTheSensor", [](Layout& l) { l.SetMap(0, 1681, 1); }}),
    [](const ::testing::TestParamInfo<Spoiler>& info) { return std::string(info.param.name); });

// Every lens model's list length plays (a four-coefficient one is then
// refused by whoever needs five); so do maps as large as the sensor.
TEST_F(PlayedRecordingTest, RecordingsADeviceMakesAreAttached) {
  for (const std::uint32_t coefficients : {4u, 5u, 8u, 12u, 14u}) {
    Layout layout;
    layout.distortionCount = coefficients;
    EXPECT_EQ(Attach(layout), "file:take") << coefficients;
    sim::Reset();
  }
  Layout layout;
  layout.SetMap(0, 1680, 1);
  EXPECT_EQ(Attach(layout), "file:take");
}

TEST_F(HostileRecordingTest, NonFiniteValuesAreDataNotDamage) {
  for (const double value : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    Layout layout;
    layout.calibrationValue = value;
    layout.pointValue = static_cast<float>(-value);
    ASSERT_TRUE(Read(Encode(layout))) << error_;
    EXPECT_EQ(std::isnan(value), std::isnan(recording_.calibration.DistortionCoefficients[0]));
    EXPECT_EQ(std::isnan(value), std::isnan(recording_.frame->PointCloud.At(1, 1).z));
  }
}

}  // namespace
