// Resident-memory measurement for the benchmarks (Linux /proc).
#pragma once

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>

namespace mirelo::bench {

// Resident-memory high-water mark of this process, in bytes (0 when unknown).
inline std::size_t peakResident() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return static_cast<std::size_t>(std::stoull(line.substr(6))) * 1024;
  }
  return 0;
}

// Current resident size, in bytes (0 when unknown).
inline std::size_t currentResident() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return static_cast<std::size_t>(std::stoull(line.substr(6))) * 1024;
  }
  return 0;
}

// Lowers the high-water mark to the current resident size; false when the
// system does not allow it (the reported peak then covers earlier cases too).
inline bool resetPeak() {
  std::FILE* f = std::fopen("/proc/self/clear_refs", "w");
  if (!f) return false;
  const bool ok = std::fputs("5", f) >= 0;
  return std::fclose(f) == 0 && ok;
}

}  // namespace mirelo::bench
