// Shared pieces of the benchmark programs.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

namespace orvid::bench {

// Seconds one memcpy of `byteCount` bytes takes on this machine: the fastest of
// a few warm copies.
inline double memcpySeconds(std::size_t byteCount) {
  std::vector<unsigned char> source(byteCount, 0x5A);
  std::vector<unsigned char> destination(byteCount);
  double best = 0;
  for (int round = 0; round < 5; ++round) {
    const auto start = std::chrono::steady_clock::now();
    std::memcpy(destination.data(), source.data(), byteCount);
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    best = round == 0 ? seconds : std::min(best, seconds);
  }
  return best;
}

// Times the benchmark loop it is created before and, in `report`, adds the
// counter "vs_memcpy": the speed as a fraction of memcpy moving the same
// `byteCount` bytes per iteration (1 = as fast as a plain copy).
class MemcpyComparison {
 public:
  explicit MemcpyComparison(std::size_t byteCount)
      : byteCount_(byteCount), start_(std::chrono::steady_clock::now()) {}

  void report(benchmark::State& state) const {
    const double loopSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    if (state.iterations() == 0 || loopSeconds <= 0) return;
    const double secondsPerIteration = loopSeconds / static_cast<double>(state.iterations());
    state.counters["vs_memcpy"] = memcpySeconds(byteCount_) / secondsPerIteration;
  }

 private:
  std::size_t byteCount_;
  std::chrono::steady_clock::time_point start_;
};

}  // namespace orvid::bench
