#include "tools/common/ToolIO.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace mirelo::tooling {

std::string displayName(const std::string& path) { return path == "-" ? "standard input" : path; }

bool readFile(const std::string& path, std::string* out, std::string* error) {
  std::FILE* f = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (!f) {
    *error = displayName(path) + ": " + std::strerror(errno);
    return false;
  }
  char buf[1 << 16];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out->append(buf, n);
  const bool failed = std::ferror(f) != 0;
  const int err = errno;
  if (f != stdin) std::fclose(f);
  if (failed) {
    *error = displayName(path) + ": " + std::strerror(err);
    return false;
  }
  return true;
}

bool writeStdout(const void* bytes, std::size_t size) {
  return (size == 0 || std::fwrite(bytes, 1, size, stdout) == size) && std::fflush(stdout) == 0;
}

}  // namespace mirelo::tooling
