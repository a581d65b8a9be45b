#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvid::fuzz {

// Ends the run with a finding when a rule the target checks does not hold.
inline void require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", rule);
  std::abort();
}

inline std::vector<std::uint8_t> bytes(std::string_view text) { return {text.begin(), text.end()}; }

// Named starting inputs of a fuzz target.
using Seeds = std::vector<std::pair<std::string, std::vector<std::uint8_t>>>;

// Every target accepts "TARGET --write-seeds DIR": it writes its seeds into DIR and
// exits, so that no corpus is checked in. Call from LLVMFuzzerInitialize, which
// libFuzzer runs before it reads its own flags; returns when not asked.
inline void writeSeedsIfAsked(int* argc, char*** argv, const std::function<Seeds()>& makeSeeds) {
  if (*argc != 3 || std::string_view((*argv)[1]) != "--write-seeds") return;
  const std::filesystem::path folder = (*argv)[2];
  std::filesystem::create_directories(folder);
  for (const auto& [name, bytes] : makeSeeds()) {
    std::ofstream file(folder / name, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file) {
      std::fprintf(stderr, "cannot write seed %s\n", (folder / name).c_str());
      std::exit(1);
    }
  }
  std::exit(0);
}

}  // namespace orvid::fuzz

// Defines the target's LLVMFuzzerInitialize, which answers --write-seeds with `makeSeeds`.
#define ORVID_FUZZ_SEEDS(makeSeeds)                                \
  extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {   \
    orvid::fuzz::writeSeedsIfAsked(argc, argv, makeSeeds);         \
    return 0;                                                      \
  }
