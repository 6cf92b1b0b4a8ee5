// File reading and writing shared by the command-line tools.
#pragma once

#include <cstddef>
#include <string>

namespace mirelo::tooling {

// "standard input" for "-", the path otherwise.
std::string displayName(const std::string& path);

// Reads the whole file, or standard input for "-".  False, with a one-line
// reason in `*error` ("<name>: <system error>"), when it cannot be read.
bool readFile(const std::string& path, std::string* out, std::string* error);

// Writes all bytes to standard output and flushes; false on a write error.
bool writeStdout(const void* bytes, std::size_t size);
inline bool writeStdout(const std::string& text) { return writeStdout(text.data(), text.size()); }

}  // namespace mirelo::tooling
