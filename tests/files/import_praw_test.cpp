// Importing recordings (".praw") through a file camera.
#include <tavrin/Files.h>
#include <tavrin/PhoXiDevice.h>

#include "support/SimulatorFixture.h"
#include "files/PrawAcceptance.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::LogCapture;

TEST(PrawAcceptance, KeepsPointsBeyondAboutThreeHundredthsOfTheOrigin) {
  EXPECT_TRUE(PrawKeepsPoint(glm::vec3(0.02f, 0.02f, 0.02f)));   // 0.0012
  EXPECT_FALSE(PrawKeepsPoint(glm::vec3(0.01f, 0.01f, 0.01f)));  // 0.0003
  EXPECT_FALSE(PrawKeepsPoint(glm::vec3(0.0f)));
  EXPECT_TRUE(PrawKeepsPoint(glm::vec3(0.0f, 0.0f, -0.032f)));
  EXPECT_FALSE(PrawKeepsPoint(glm::vec3(0.0f, 0.0f, -0.0316f)));
  EXPECT_TRUE(PrawKeepsPoint(glm::vec3(0.0f, 500.0f, 0.0f)));
}

class ImportPrawTest : public DeviceTest {};

TEST_F(ImportPrawTest, RecordingGivesTheScanOfTheLiveCaptureMinusDroppedPoints) {
  const std::string hw = AddDevice();
  tavrin_test::ScratchDir dir;
  const std::string path = (dir.Path() / "take.praw").string();

  // A live capture, then the same frame saved by PhoXi Control.
  zelk::Scan live;
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Device, hw, false, false));
    ASSERT_TRUE(device.CaptureScan(live, nullptr));
    pho::api::PhoXiFactory factory;
    pho::api::PPhoXi other = factory.CreateAndConnect(hw, pho::api::PhoXiTimeout::ZeroTimeout);
    ASSERT_TRUE(other);
    ASSERT_TRUE(other->SaveLastOutput(path));
  }

  zelk::Scan imported;
  ASSERT_TRUE(ImportPraw(imported, path));

  std::vector<glm::uvec2> expectedCoords;
  std::vector<glm::vec3> expectedPositions;
  for (std::uint32_t i = 0; i < live.GetPointCount(); ++i) {
    if (!PrawKeepsPoint(live.GetPositions()[i])) continue;
    expectedCoords.push_back(live.GetCoords()[i]);
    expectedPositions.push_back(live.GetPositions()[i]);
  }
  ASSERT_GT(expectedCoords.size(), 0u);
  EXPECT_EQ(imported.GetResolution(), live.GetResolution());
  ASSERT_EQ(imported.GetPointCount(), expectedCoords.size());
  EXPECT_EQ(imported.GetCoords(), expectedCoords);
  EXPECT_EQ(std::memcmp(imported.GetPositions(), expectedPositions.data(), expectedPositions.size() * sizeof(glm::vec3)),
            0);
  EXPECT_EQ(imported.GetTimestamp(), live.GetTimestamp());
  EXPECT_EQ(imported.GetCameraParams().fx, live.GetCameraParams().fx);
  EXPECT_EQ(imported.GetCameraParams().cy, live.GetCameraParams().cy);
  ASSERT_TRUE(imported.GetSpace());
  EXPECT_EQ(imported.GetSpace()->id, "PhoXi Camera");

  // Nothing of the file camera outlives the import.
  EXPECT_EQ(pho::sim::ListDevices(), std::vector<std::string>{hw});
}

// A recording of a failed capture plays but converts to no scan: the import
// fails and leaves no file camera behind.
TEST_F(ImportPrawTest, ARecordingOfAFailedCaptureGivesNoScan) {
  const std::string hw = AddDevice();
  tavrin_test::ScratchDir dir;
  const std::string path = (dir.Path() / "failed.praw").string();
  ASSERT_TRUE(pho::sim::MakeFramesUnsuccessful(hw, 1));
  ASSERT_TRUE(tavrin_test::WriteRecording(hw, path));
  LogCapture log;
  zelk::Scan scan;
  EXPECT_FALSE(ImportPraw(scan, path));
  EXPECT_TRUE(log.Has(ulog::Level::Warn, "Can not acquire scan. PhoXi frame data invalid.", "GetScan"));
  EXPECT_EQ(scan.GetPointCount(), 0u);
  EXPECT_EQ(pho::sim::ListDevices(), std::vector<std::string>{hw});
}

TEST_F(ImportPrawTest, FailsWithOneMessageWhenTheRecordingCannotBePlayed) {
  tavrin_test::ScratchDir dir;
  {
    LogCapture log;
    zelk::Scan scan;
    EXPECT_FALSE(ImportPraw(scan, (dir.Path() / "missing.praw").string()));
    EXPECT_TRUE(log.Has(ulog::Level::Fail, "Can not connect to PhoXi Control when loading praw.", "tavrin::ImportPraw"));
    EXPECT_EQ(scan.GetPointCount(), 0u);
  }
  {
    pho::sim::StopControl();
    LogCapture log;
    zelk::Scan scan;
    EXPECT_FALSE(ImportScan(scan, (dir.Path() / "missing.praw").string()));
    EXPECT_TRUE(log.Has(ulog::Level::Fail, "Can not connect to PhoXi Control when loading praw.", "tavrin::ImportPraw"));
  }
}

// A throwing file-camera connect passes through the import, and the camera
// attached for it is detached again.
TEST_F(ImportPrawTest, AThrowingConnectPassesThroughAndLeavesNoCameraAttached) {
  const std::string hw = AddDevice();
  tavrin_test::ScratchDir dir;
  const std::string path = (dir.Path() / "take.praw").string();
  ASSERT_TRUE(tavrin_test::WriteRecording(hw, path));
  pho::sim::ThrowOnNextConnects(1);
  zelk::Scan scan;
  EXPECT_THROW(ImportPraw(scan, path), std::runtime_error);
  EXPECT_EQ(pho::sim::ListDevices(), std::vector<std::string>{hw});
  EXPECT_TRUE(ImportPraw(scan, path));
}

}  // namespace
}  // namespace tavrin
