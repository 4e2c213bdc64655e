#pragma once

#include <ctime>

namespace tarvel_bench {

// CPU time that all threads of this process have used, user and system.
inline double ProcessCpuMicroseconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

}  // namespace tarvel_bench
