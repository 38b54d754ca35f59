// Thread-safety smoke tests: one handle used from two threads at once, and
// several devices working in parallel while the control side is queried.
#include "PhoxiTestSupport.h"

#include <atomic>
#include <thread>

namespace phoxi_test {
namespace {

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

TEST_F(SimTest, DisconnectFromAnotherThreadEndsAWait) {
  api::PPhoXi handle = Connect(Device("ENDWAIT"));
  ASSERT_TRUE(handle);
  ASSERT_TRUE(sim::SetFrameDelay("ENDWAIT", std::chrono::seconds(30)));
  const int id = handle->TriggerFrame();
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    handle->Disconnect();
  });
  EXPECT_FALSE(handle->GetSpecificFrame(id, api::PhoXiTimeout::Infinity));
  other.join();
}

}  // namespace
}  // namespace phoxi_test
