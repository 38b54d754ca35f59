// Triggering, frame retrieval with every timeout kind, free run, the
// deterministic fault knobs of the simulated PhoXi Control, and thread safety.
#include "PhoxiTestSupport.h"

#include <atomic>
#include <stdexcept>
#include <thread>

namespace phoxi_test {
namespace {

using std::chrono::milliseconds;

TEST_F(SimTest, TriggerAnswersWithIdsOrTheDocumentedCodes) {
  EXPECT_TRUE(sim::AddDevice(Device("TRIG")));
  api::PPhoXi handle = factory_.CreateAndConnect("TRIG");
  ASSERT_TRUE(handle);
  ASSERT_TRUE(handle->TriggerMode.SetValue(api::PhoXiTriggerMode::Software));
  EXPECT_EQ(handle->TriggerFrame(), -7) << "not acquiring";
  ASSERT_TRUE(handle->StartAcquisition());
  EXPECT_TRUE(handle->isAcquiring());
  ASSERT_TRUE(sim::FailNextTriggers("TRIG", 1, -3));
  EXPECT_FALSE(sim::FailNextTriggers("NO-SUCH-DEVICE", 1, -3));
  EXPECT_EQ(handle->TriggerFrame(), -3) << "injected failures come first";
  const int first = handle->TriggerFrame();
  const int second = handle->TriggerFrame();
  EXPECT_GE(first, 0);
  EXPECT_GT(second, first);
  ASSERT_TRUE(handle->TriggerMode.SetValue(api::PhoXiTriggerMode::Freerun));
  EXPECT_EQ(handle->TriggerFrame(), -1) << "software triggers are refused in free run";
  ASSERT_TRUE(handle->Disconnect());
  EXPECT_EQ(handle->TriggerFrame(), -6) << "not connected";
  EXPECT_EQ(sim::GetCounters("TRIG").TriggerFrameCalls, 6);
}

TEST_F(SimTest, GetSpecificFrameHandsOutEachFrameOnceAndGetFrameInOrder) {
  api::PPhoXi handle = Connect(Device("ONCE"));
  ASSERT_TRUE(handle);
  const int a = handle->TriggerFrame();
  const int b = handle->TriggerFrame();
  const api::PFrame fb = handle->GetSpecificFrame(b, api::PhoXiTimeout::LastStored);
  const api::PFrame fa = handle->GetSpecificFrame(a, api::PhoXiTimeout::ZeroTimeout);
  ASSERT_TRUE(fa && fb);
  EXPECT_EQ(fa->Info.FrameIndex, static_cast<std::uint64_t>(a));
  EXPECT_EQ(fb->Info.FrameIndex, static_cast<std::uint64_t>(b));
  // A frame handed out, or never triggered, does not come however long one waits.
  EXPECT_FALSE(handle->GetSpecificFrame(a, api::PhoXiTimeout::Infinity));
  EXPECT_FALSE(handle->GetSpecificFrame(b + 100, api::PhoXiTimeout::Infinity));
  EXPECT_FALSE(handle->GetSpecificFrame(b + 100, api::PhoXiTimeout::Milliseconds(5)));
  EXPECT_EQ(sim::GetCounters("ONCE").GetSpecificFrameCalls, 5);
  EXPECT_EQ(sim::GetCounters("ONCE").FramesDelivered, 2);

  // GetFrame in software mode hands out the triggered frames in order.
  const int c = handle->TriggerFrame();
  const int d = handle->TriggerFrame();
  const api::PFrame fc = handle->GetFrame(api::PhoXiTimeout::ZeroTimeout);
  const api::PFrame fd = handle->GetFrame(api::PhoXiTimeout::LastStored);
  ASSERT_TRUE(fc && fd);
  EXPECT_EQ(fc->Info.FrameIndex, static_cast<std::uint64_t>(c));
  EXPECT_EQ(fd->Info.FrameIndex, static_cast<std::uint64_t>(d));
  EXPECT_FALSE(handle->GetFrame(api::PhoXiTimeout::Infinity)) << "no frame is on its way";
  EXPECT_FALSE(handle->GetFrame(api::PhoXiTimeout::Milliseconds(5)));
}

TEST_F(SimTest, LateFrameComesOnlyToThoseWhoWait) {
  api::PPhoXi handle = Connect(Device("LATE"));
  ASSERT_TRUE(handle);
  ASSERT_TRUE(sim::SetFrameDelay("LATE", milliseconds(60)));
  const int id = handle->TriggerFrame();
  ASSERT_GE(id, 0);
  EXPECT_FALSE(handle->GetSpecificFrame(id, api::PhoXiTimeout::ZeroTimeout));
  EXPECT_FALSE(handle->GetSpecificFrame(id, api::PhoXiTimeout::LastStored));
  EXPECT_FALSE(handle->GetSpecificFrame(id, api::PhoXiTimeout::Milliseconds(1)));
  const api::PFrame frame = handle->GetSpecificFrame(id, api::PhoXiTimeout::Infinity);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->Info.FrameIndex, static_cast<std::uint64_t>(id));

  // Default waits as long as the device's Timeout setting says.
  ASSERT_TRUE(sim::SetFrameDelay("LATE", milliseconds(20)));
  ASSERT_TRUE(handle->Timeout.SetValue(api::PhoXiTimeout::Milliseconds(5000)));
  const int next = handle->TriggerFrame();
  EXPECT_TRUE(handle->GetSpecificFrame(next, api::PhoXiTimeout::Default));
}

TEST_F(SimTest, ClearBufferDropsArrivedFramesOnly) {
  api::PPhoXi handle = Connect(Device("CLEAR"));
  ASSERT_TRUE(handle);
  handle->TriggerFrame();
  handle->TriggerFrame();
  EXPECT_EQ(handle->ClearBuffer(), 2);
  EXPECT_EQ(handle->ClearBuffer(), 0);
  ASSERT_TRUE(sim::SetFrameDelay("CLEAR", std::chrono::seconds(30)));
  const int late = handle->TriggerFrame();
  EXPECT_EQ(handle->ClearBuffer(), 0) << "a frame on its way is not in the buffer yet";
  EXPECT_FALSE(handle->GetSpecificFrame(late, api::PhoXiTimeout::ZeroTimeout));
  EXPECT_EQ(sim::GetCounters("CLEAR").ClearBufferCalls, 3);
}

TEST_F(SimTest, FreeRunStreamsIntoABoundedBuffer) {
  EXPECT_TRUE(sim::AddDevice(Device("FREE")));
  ASSERT_TRUE(sim::SetFreerun("FREE", milliseconds(5), 3));
  api::PPhoXi handle = factory_.CreateAndConnect("FREE");
  ASSERT_TRUE(handle);
  ASSERT_TRUE(handle->TriggerMode.SetValue(api::PhoXiTriggerMode::Freerun));
  ASSERT_TRUE(handle->StartAcquisition());
  const api::PFrame a = handle->GetFrame(api::PhoXiTimeout::Infinity);
  const api::PFrame b = handle->GetFrame(api::PhoXiTimeout::Infinity);
  ASSERT_TRUE(a && b);
  EXPECT_GT(b->Info.FrameIndex, a->Info.FrameIndex);
  std::this_thread::sleep_for(milliseconds(60));
  EXPECT_EQ(handle->ClearBuffer(), 3) << "the buffer keeps the newest three";
  ASSERT_TRUE(handle->StopAcquisition());
  handle->ClearBuffer();
  EXPECT_FALSE(handle->GetFrame(api::PhoXiTimeout::Infinity)) << "nothing comes after acquisition stopped";
  EXPECT_EQ(sim::GetCounters("FREE").GetFrameCalls, 3);
}

TEST_F(SimTest, ConnectionDropsAtOnceOrAfterTheGivenNumberOfFrames) {
  api::PPhoXi handle = Connect(Device("DROP"));
  ASSERT_TRUE(handle);
  ASSERT_TRUE(sim::DropConnection("DROP"));
  EXPECT_FALSE(handle->isConnected());
  EXPECT_FALSE(handle->isAcquiring());
  EXPECT_EQ(handle->TriggerFrame(), -6);
  EXPECT_FALSE(handle->GetFrame(api::PhoXiTimeout::Infinity));
  EXPECT_FALSE(handle->StartAcquisition());
  EXPECT_EQ(handle->Resolution.GetValue(), api::PhoXiSize());
  EXPECT_FALSE(handle->Resolution.isLastOperationSuccessful());
  EXPECT_EQ(handle->HardwareIdentification.GetValue(), "DROP") << "the identification stays readable";
  // A new connection works.
  api::PPhoXi again = factory_.CreateAndConnect("DROP");
  ASSERT_TRUE(again);
  EXPECT_TRUE(again->isConnected());
  EXPECT_FALSE(handle->isConnected()) << "the old handle stays lost";

  // A drop after two frames delivers both first.
  ASSERT_TRUE(again->TriggerMode.SetValue(api::PhoXiTriggerMode::Software) && again->StartAcquisition());
  ASSERT_TRUE(sim::DropConnection("DROP", 2));
  EXPECT_TRUE(Capture(again));
  EXPECT_TRUE(again->isConnected());
  EXPECT_TRUE(Capture(again)) << "the last frame before the drop is delivered";
  EXPECT_FALSE(again->isConnected());
  EXPECT_EQ(again->TriggerFrame(), -6);
}

TEST_F(SimTest, UnsuccessfulFramesComeAsToldThenGoodOnes) {
  api::PPhoXi handle = Connect(Device("BAD"));
  ASSERT_TRUE(handle);
  ASSERT_TRUE(sim::MakeFramesUnsuccessful("BAD", 1));
  const api::PFrame bad = Capture(handle);
  const api::PFrame good = Capture(handle);
  ASSERT_TRUE(bad && good);
  EXPECT_FALSE(bad->Successful);
  EXPECT_FALSE(bad->PointCloud.Empty()) << "only the flag tells the frame is bad";
  EXPECT_TRUE(good->Successful);

  ASSERT_TRUE(sim::MakeFramesUnsuccessful("BAD", -1));
  EXPECT_FALSE(Capture(handle)->Successful);
  EXPECT_FALSE(Capture(handle)->Successful);
  ASSERT_TRUE(sim::MakeFramesUnsuccessful("BAD", 0));
  EXPECT_TRUE(Capture(handle)->Successful);
}

TEST_F(SimTest, DisconnectFlagsAndTriggerModeAreRecorded) {
  api::PPhoXi handle = Connect(Device("FLAGS"));
  ASSERT_TRUE(handle);
  EXPECT_EQ(sim::GetCounters("FLAGS").LastTriggerModeSet, api::PhoXiTriggerMode::Software);
  ASSERT_TRUE(handle->TriggerMode.SetValue(api::PhoXiTriggerMode::Freerun));
  EXPECT_EQ(sim::GetCounters("FLAGS").LastTriggerModeSet, api::PhoXiTriggerMode::Freerun);
  EXPECT_EQ(sim::GetCounters("FLAGS").TriggerModeSetCalls, 2);
  EXPECT_TRUE(handle->Disconnect(true, false));
  sim::DeviceCounters counters = sim::GetCounters("FLAGS");
  EXPECT_EQ(counters.DisconnectCalls, 1);
  EXPECT_TRUE(counters.LastDisconnectLogOut);
  EXPECT_FALSE(counters.LastDisconnectStopAcquisition);
  const std::optional<sim::DeviceState> state = sim::GetDeviceState("FLAGS");
  ASSERT_TRUE(state);
  EXPECT_TRUE(state->Acquiring) << "acquisition was left running";
  EXPECT_FALSE(state->Definition.Attached) << "logging out detaches the device";
  EXPECT_FALSE(state->Connected);
}

// Thread safety: one handle used from two threads at once, and several
// devices working in parallel while the control side is queried.
TEST_F(SimTest, TwoThreadsHammeringOneHandle) {
  api::PPhoXi handle = Connect(Device("HAMMER"));
  ASSERT_TRUE(handle);
  handle->OutputSettings->SendNormalMap = false;  // keep frames light
  std::atomic<bool> done{false};
  std::vector<int> ids;
  int frames = 0;

  std::thread capturer([&] {
    for (int i = 0; i < 12; ++i) {
      const int id = handle->TriggerFrame(true, true);
      if (id < 0) continue;
      ids.push_back(id);
      const api::PFrame frame = handle->GetSpecificFrame(id, api::PhoXiTimeout::Infinity);
      if (frame && frame->Info.FrameIndex == static_cast<std::uint64_t>(id)) ++frames;
    }
    done = true;
  });
  // The watchdog side: connection queries, setting reads and writes, control
  // queries, all while frames are made.
  int polls = 0;
  while (!done) {
    EXPECT_TRUE(handle->isConnected());
    EXPECT_TRUE(handle->isAcquiring());
    EXPECT_EQ(handle->Resolution.GetValue(), api::PhoXiSize(1032, 772));
    handle->ProcessingSettings->NormalsEstimationRadius = 1 + polls % 3;
    EXPECT_TRUE(sim::GetDeviceState("HAMMER"));
    sim::GetCounters("HAMMER");
    ++polls;
  }
  capturer.join();
  EXPECT_EQ(frames, 12);
  ASSERT_EQ(ids.size(), 12u);
  for (std::size_t i = 1; i < ids.size(); ++i) EXPECT_GT(ids[i], ids[i - 1]);
  EXPECT_GT(polls, 0);
}

TEST_F(SimTest, SeveralDevicesAtOnceWhileTheControlChanges) {
  constexpr int kDevices = 3;
  std::vector<api::PPhoXi> handles;
  for (int d = 0; d < kDevices; ++d) {
    handles.push_back(Connect(Device("PAR-" + std::to_string(d))));
    ASSERT_TRUE(handles.back());
    handles.back()->OutputSettings->SendNormalMap = false;
  }
  ASSERT_TRUE(sim::AddDevice(Device("SPARE")));
  std::atomic<int> frames{0};
  std::vector<std::thread> workers;
  for (int d = 0; d < kDevices; ++d) {
    workers.emplace_back([&, d] {
      for (int i = 0; i < 4; ++i)
        if (Capture(handles[static_cast<std::size_t>(d)])) ++frames;
    });
  }
  // Meanwhile the control side changes an unrelated device and lists all.
  std::thread control([&] {
    for (int i = 0; i < 50; ++i) {
      sim::SetAttached("SPARE", i % 2 == 0);
      factory_.GetDeviceList();
      api::PPhoXi spare = factory_.CreateAndConnect("SPARE");
      if (spare) spare->Disconnect(true, true);
    }
  });
  for (std::thread& w : workers) w.join();
  control.join();
  EXPECT_EQ(frames.load(), kDevices * 4);
}

// A lost connection, or a disconnect from another thread, ends a wait for a
// frame that is still on its way.
TEST_F(SimTest, DropOrDisconnectFromAnotherThreadEndsAWait) {
  for (const bool drop : {true, false}) {
    const std::string hwId = drop ? "WAKE" : "ENDWAIT";
    api::PPhoXi handle = Connect(Device(hwId));
    ASSERT_TRUE(handle);
    ASSERT_TRUE(sim::SetFrameDelay(hwId, std::chrono::seconds(30)));
    const int id = handle->TriggerFrame();
    std::thread other([&] {
      std::this_thread::sleep_for(milliseconds(20));
      if (drop) {
        sim::DropConnection(hwId);
      } else {
        handle->Disconnect();
      }
    });
    EXPECT_FALSE(handle->GetSpecificFrame(id, api::PhoXiTimeout::Infinity)) << hwId;
    other.join();
  }
}

}  // namespace
}  // namespace phoxi_test
