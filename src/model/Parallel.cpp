#include "model/Parallel.h"

#include <sched.h>

#include <algorithm>

namespace tavrin {

unsigned UsableThreads(unsigned cap) {
  unsigned cpus = 0;
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) cpus = static_cast<unsigned>(CPU_COUNT(&set));
  if (cpus == 0) cpus = std::thread::hardware_concurrency();
  return std::clamp(cpus, 1u, std::max(cap, 1u));
}

}  // namespace tavrin
