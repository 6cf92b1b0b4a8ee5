// Built with pkg-config alone: `c++ -std=c++20 pkgconfig_main.cc
// $(pkg-config --cflags --libs mirelo-kit)`.
#include <cstdio>

#include "mirelo/MRApi.h"

int main() {
  std::printf("Mirelo Kit %s\n", mirelo::MRApi::getApiVersion().c_str());
  return mirelo::MRApi::getApiVersion() == "1.9.2" ? 0 : 1;
}
