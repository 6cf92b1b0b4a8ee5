// How a fuzz target reports: every target function answers "" when the
// input was handled correctly and a description of the problem otherwise
// (a wrong answer, a broken promise of the interface).  Crashes, leaks and
// undefined behaviour are caught by the sanitizers on their own.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace mirelo::fuzz {

// For the fuzzer entry points: a problem ends the run like a crash, so that
// libFuzzer keeps the input.
inline void check(const std::string& problem) {
  if (problem.empty()) return;
  std::fprintf(stderr, "==fuzz== wrong answer: %s\n", problem.c_str());
  std::abort();
}

}  // namespace mirelo::fuzz
