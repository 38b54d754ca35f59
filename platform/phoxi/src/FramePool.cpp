#include "FramePool.h"

#include <mutex>
#include <vector>

namespace pho {
namespace sim {

namespace {

// Idle frames kept at most: enough for a render while the previous frame is
// still being looked at, without holding on to much memory.
constexpr std::size_t kMaxIdle = 2;

struct Pool {
  std::mutex mutex;
  std::vector<api::Frame*> idle;
};

Pool& ThePool() {
  // Never destroyed: frames may be released by other static objects during
  // process exit, after a pool with static storage would be gone.
  static Pool* pool = new Pool;
  return *pool;
}

void Recycle(api::Frame* frame) {
  Pool& pool = ThePool();
  {
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (pool.idle.size() < kMaxIdle) {
      pool.idle.push_back(frame);
      return;
    }
  }
  delete frame;
}

}  // namespace

api::PFrame AcquireFrame() {
  api::Frame* frame = nullptr;
  {
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (!pool.idle.empty()) {
      frame = pool.idle.back();
      pool.idle.pop_back();
    }
  }
  if (frame == nullptr) {
    frame = new api::Frame;
  } else {
    frame->Successful = false;
    frame->Info = api::FrameInfo();
  }
  return api::PFrame(frame, Recycle);
}

}  // namespace sim
}  // namespace pho
