// Helpers shared by the fuzz targets: one scratch directory per fuzzing
// process, writable copies of texts for the char* interfaces, and a check
// that aborts (so libFuzzer keeps the input) when a property does not hold.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace fuzzsupport {

// A directory made on first use under $TMPDIR (or /tmp). libFuzzer ends the
// process without running exit handlers, so it stays behind: the fuzz check
// points TMPDIR into a work directory of its own that it removes.
inline const std::string& ScratchDir() {
  static const std::string s_dir = [] {
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/columnlogs_fuzz_XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr) {
      perror("mkdtemp");
      abort();
    }
    return std::string(buf.data());
  }();
  return s_dir;
}

// A NUL-terminated writable copy of `text`.
inline std::vector<char> Writable(const std::string& text) {
  std::vector<char> buf(text.begin(), text.end());
  buf.push_back('\0');
  return buf;
}

inline bool WriteWhole(const std::string& path, const void* data, size_t size) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = fwrite(data, 1, size, f) == size;
  return fclose(f) == 0 && ok;
}

inline std::string ReadWhole(const std::string& path) {
  std::string out;
  if (FILE* f = fopen(path.c_str(), "rb")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) out.append(buf, n);
    fclose(f);
  }
  return out;
}

// "{~}" -> tilde separator, "{|}" -> bar separator, as in the test notation.
inline std::string Sep(const std::string& readable) {
  std::string out;
  for (size_t i = 0; i < readable.size();) {
    if (readable.compare(i, 3, "{~}") == 0) {
      out += "\x03\x1f\x7e";
      i += 3;
    } else if (readable.compare(i, 3, "{|}") == 0) {
      out += "\x03\x1f\x7c";
      i += 3;
    } else {
      out += readable[i++];
    }
  }
  return out;
}

}  // namespace fuzzsupport

// A property of the code under test that must hold for every input.
#define FUZZ_CHECK(cond)                                                          \
  do {                                                                            \
    if (!(cond)) {                                                                \
      fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
      abort();                                                                    \
    }                                                                             \
  } while (0)
