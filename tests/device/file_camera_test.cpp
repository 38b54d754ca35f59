// Recorded frame files played as file cameras: naming, missing files, the
// Auto dispatch and detaching.
#include "DeviceTestSupport.h"

#include "device/PhoXiStreamer.h"

#include <algorithm>
#include <set>

namespace tavrin {
namespace {

using tavrin_test::DeviceTest;
using tavrin_test::LogCapture;
using tavrin_test::IsListed;
using tavrin_test::Level;

// Six characters, each from 'A' (65) to 'z' (122).
bool IsSuffix(const std::string& text) {
  return text.size() == 6 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'z'; });
}

class FileCameraTest : public DeviceTest {
protected:
  void SetUp() override {
    DeviceTest::SetUp();
    recorder_ = AddDevice("REC-001");
  }
  std::string Record(const std::filesystem::path& path) {
    std::filesystem::create_directories(path.parent_path());
    EXPECT_TRUE(tavrin_test::WriteRecording(recorder_, path.string()));
    return path.string();
  }

  tavrin_test::ScratchDir dir_;
  std::string recorder_;
};

TEST_F(FileCameraTest, SingleFileIsNamedAfterTheFileUpToItsFirstDot) {
  const std::string file = Record(dir_.Path() / "scan.a.praw");
  PhoXiDevice device;
  ASSERT_TRUE(device.ConnectFileCameras({file}, false, false));
  const pho::sim::FileCameraCounters counters = pho::sim::GetFileCameraCounters();
  ASSERT_EQ(counters.LastAttachName.size(), 10u);
  EXPECT_EQ(counters.LastAttachName.substr(0, 4), "scan");
  EXPECT_TRUE(IsSuffix(counters.LastAttachName.substr(4))) << counters.LastAttachName;
  EXPECT_EQ(counters.LastDetachName, "scan") << "a stale camera of the base name is detached first";
  EXPECT_EQ(counters.LastAttachPaths, std::vector<std::string>{file});
  EXPECT_EQ(device.GetId(), counters.LastAttachName) << "the id is the PhoXi name, not the hardware identification";
  EXPECT_TRUE(device.IsAcquisitionMode());
  PhoXiDevice second;
  ASSERT_TRUE(second.ConnectFileCameras({file}, false, false));
  EXPECT_NE(second.GetId(), device.GetId());
}

// Relative paths are made absolute first, so the name has the full directory.
TEST_F(FileCameraTest, SeveralFilesAreNamedAfterTheDirectoryAboveTheirs) {
  Record(dir_.Path() / "set1" / "a.praw");
  Record(dir_.Path() / "set1" / "b.praw");
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(dir_.Path());
  PhoXiDevice device;
  const bool connected = device.ConnectFileCameras({"set1/a.praw", "set1/b.praw"}, false, false);
  std::filesystem::current_path(previous);
  ASSERT_TRUE(connected);
  const pho::sim::FileCameraCounters counters = pho::sim::GetFileCameraCounters();
  EXPECT_EQ(counters.LastAttachPaths, (std::vector<std::string>{dir_ / "set1/a.praw", dir_ / "set1/b.praw"}));
  const std::string base = dir_.Path().string();
  ASSERT_EQ(counters.LastAttachName.size(), base.size() + 6);
  EXPECT_EQ(counters.LastAttachName.substr(0, base.size()), base);
  EXPECT_TRUE(IsSuffix(counters.LastAttachName.substr(base.size()))) << counters.LastAttachName;
}

TEST(FileCameraNaming, BaseNameRules) {
  EXPECT_EQ(FileCameraBaseName({"/data/scan.a.praw"}), "scan");
  EXPECT_EQ(FileCameraBaseName({"/data/scan"}), "scan");
  EXPECT_EQ(FileCameraBaseName({"C:\\data\\take.praw"}), "take");
  EXPECT_EQ(FileCameraBaseName({"/data/set1/a.praw", "/data/set1/b.praw"}), "/data");
  // The directory of the first file has no separator of its own: file name.
  EXPECT_EQ(FileCameraBaseName({"set1/a.praw", "set1/b.praw"}), "a");
  EXPECT_EQ(FileCameraBaseName({}), "");
}

// 12000 draws over 58 codes: each code, punctuation between 'Z' and 'a'
// included, is missed with probability below 1e-80.
TEST(FileCameraNaming, SuffixCoversTheWholeRange) {
  std::set<char> seen;
  for (int i = 0; i < 2000; ++i) {
    const std::string suffix = FileCameraSuffix();
    ASSERT_TRUE(IsSuffix(suffix)) << suffix;
    seen.insert(suffix.begin(), suffix.end());
  }
  EXPECT_EQ(seen.size(), 58u);
}

TEST_F(FileCameraTest, MissingFilesAreEachReportedOnceAndNothingConnects) {
  const std::string file = Record(dir_.Path() / "scan.praw");
  const std::string missingA = (dir_.Path() / "gone1.praw").string();
  const std::string missingB = (dir_.Path() / "gone2.praw").string();
  LogCapture log;
  PhoXiDevice device;
  EXPECT_FALSE(device.ConnectFileCameras({missingA, file, missingB}, false, false));
  EXPECT_EQ(log.Count("PhoXi: can not connect to device: " + missingA + "."), 1u);
  EXPECT_EQ(log.Count("PhoXi: can not connect to device: " + missingB + "."), 1u);
  EXPECT_TRUE(log.Has(Level::Warn, "PhoXi device cannot be created.", "PhoXiDevice"));
  EXPECT_EQ(log.Lines().size(), 3u);
  EXPECT_EQ(pho::sim::GetFileCameraCounters().AttachCalls, 0);
  EXPECT_FALSE(device.IsConnected());
}

TEST_F(FileCameraTest, AutoTakesTheFileCameraPathForAnEmptyIdentifierOrAnExistingPath) {
  {
    LogCapture log;
    PhoXiDevice device;
    EXPECT_FALSE(device.Connect(PhoXiDevice::Auto, "", false, false));
    EXPECT_EQ(pho::sim::GetFileCameraCounters().AttachCalls, 1);
    EXPECT_TRUE(log.Has(Level::Warn, "File camera is not available.", "PhoXiDevice"));
  }
  const std::string file = Record(dir_.Path() / "take.praw");
  std::string hwId;
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::Auto, file, false, false));
    const std::string id = device.GetId();
    EXPECT_EQ(id.substr(0, 4), "take");
    hwId = pho::sim::FileCameraHardwareId(id);
    EXPECT_TRUE(device.ConnectFileCameras({file}, false, false));
    EXPECT_EQ(device.GetId(), id) << "connected: changes nothing";
    EXPECT_EQ(pho::sim::GetFileCameraCounters().AttachCalls, 2);
  }
  EXPECT_TRUE(IsListed(hwId)) << "only a connection made as FileCamera is detached";
}

// The two keys differ in PhoXi Control: Disconnect detaches by the hardware
// identification, destruction of a connected object by Disconnect and then
// by the PhoXi name it keeps as its id.
TEST_F(FileCameraTest, DisconnectDetachesByHardwareIdDestructionAlsoByName) {
  const std::string file = Record(dir_.Path() / "take.praw");
  auto detachKeys = [] { return pho::sim::GetFileCameraCounters().DetachKeys; };
  std::string first;
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::FileCamera, file, false, false));
    first = pho::sim::FileCameraHardwareId(device.GetId());
    ASSERT_TRUE(IsListed(first));
    EXPECT_TRUE(device.Disconnect());
    EXPECT_FALSE(IsListed(first));
    EXPECT_TRUE(pho::sim::GetCounters(first).LastDisconnectLogOut);
  }  // disconnected: destruction detaches nothing more
  std::string name;
  {
    PhoXiDevice device;
    ASSERT_TRUE(device.Connect(PhoXiDevice::FileCamera, file, false, false));
    name = device.GetId();
  }
  const std::string second = pho::sim::FileCameraHardwareId(name);
  EXPECT_FALSE(IsListed(second));
  // Each connect first detaches a stale camera of the base name.
  EXPECT_EQ(detachKeys(), (std::vector<std::string>{"take", first, "take", second, name}));
}

// A sequence that leaves the camera attached once its connection is lost,
// unless the caller disconnects first (as the class header advises).
struct LostCameraCase {
  const char* name;
  std::function<void(std::unique_ptr<PhoXiDevice>&, const std::string& file)> then;
};

void PrintTo(const LostCameraCase& value, std::ostream* out) { *out << value.name; }

class LostCameraTest : public FileCameraTest, public ::testing::WithParamInterface<LostCameraCase> {};

TEST_P(LostCameraTest, StaysAttachedUnlessDisconnectedFirst) {
  const std::string file = Record(dir_.Path() / "take.praw");
  for (const bool disconnectFirst : {false, true}) {
    auto device = std::make_unique<PhoXiDevice>();
    ASSERT_TRUE(device->ConnectFileCameras({file}, false, false));
    const std::string hwId = pho::sim::FileCameraHardwareId(device->GetId());
    ASSERT_TRUE(pho::sim::DropConnection(hwId, 0));
    if (disconnectFirst) {
      EXPECT_TRUE(device->Disconnect());
    }
    GetParam().then(device, file);
    device.reset();
    EXPECT_EQ(IsListed(hwId), !disconnectFirst) << (disconnectFirst ? "disconnected first" : "as it was");
  }
}

INSTANTIATE_TEST_SUITE_P(
    AfterALoss, LostCameraTest,
    ::testing::Values(LostCameraCase{"Destroyed", [](std::unique_ptr<PhoXiDevice>&, const std::string&) {}},
                      LostCameraCase{"Reset", [](std::unique_ptr<PhoXiDevice>& d, const std::string&) { d->Reset(); }},
                      LostCameraCase{"ConnectedAgain",
                                     [](std::unique_ptr<PhoXiDevice>& d, const std::string& file) {
                                       EXPECT_TRUE(d->ConnectFileCameras({file}, false, false));
                                     }}),
    [](const ::testing::TestParamInfo<LostCameraCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tavrin
