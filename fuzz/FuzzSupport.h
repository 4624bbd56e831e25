// Helpers shared by the fuzz targets: one scratch directory per fuzzing
// process, writable copies of texts for the char* interfaces, and a check
// that aborts (so libFuzzer keeps the input) when a property does not hold.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace fuzzsupport {

// A directory under /tmp made on first use and emptied and removed when the
// process exits normally (a crash leaves it behind for a look).
inline const std::string& ScratchDir() {
  static std::string s_dir = [] {
    char templ[] = "/tmp/columnlogs_fuzz_XXXXXX";
    const char* made = mkdtemp(templ);
    if (made == nullptr) {
      perror("mkdtemp");
      abort();
    }
    std::string dir = made;
    static std::string s_remove;
    s_remove = dir;
    atexit([] {
      if (DIR* d = opendir(s_remove.c_str())) {
        while (struct dirent* e = readdir(d)) {
          if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
            unlink((s_remove + "/" + e->d_name).c_str());
        }
        closedir(d);
      }
      rmdir(s_remove.c_str());
    });
    return dir;
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
