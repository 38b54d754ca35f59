#pragma once
// Splitting one large job of the library (a grid conversion, a count) over
// the CPUs this process may run on. The threads are started for the job and
// joined before it returns; none outlives a call.
#include <system_error>
#include <thread>
#include <vector>

namespace tavrin {

// The CPUs this process may run on (its affinity), at most `cap`; at least 1.
unsigned UsableThreads(unsigned cap);

// Runs work(0) .. work(parts - 1): part 0 on the calling thread, the others on
// threads of their own, or on the calling thread after part 0 when a thread
// cannot be started. Returns when every part has finished. `work` must not
// throw.
template <class Work>
void RunParts(unsigned parts, const Work& work) {
  std::vector<std::thread> threads;
  threads.reserve(parts);
  unsigned started = 1;
  for (; started < parts; ++started) {
    try {
      threads.emplace_back(work, started);
    } catch (const std::system_error&) {
      break;
    }
  }
  work(0u);
  for (unsigned part = started; part < parts; ++part) work(part);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace tavrin
