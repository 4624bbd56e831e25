// RAII holders of the common library: a stream, a directory stream and a
// descriptor are closed on every way out of the scope that opened them, so
// early returns never leak. Results stay ints at the interfaces; these only
// live inside functions.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

struct DirCloser {
  void operator()(DIR* l_pstDir) const { closedir(l_pstDir); }
};
// A directory stream from opendir(); null when the open failed.
using DirHandle = std::unique_ptr<DIR, DirCloser>;

struct FileCloser {
  void operator()(FILE* l_pstFile) const { fclose(l_pstFile); }
};
// A stream from fopen(); null when the open failed. A caller that must know
// whether the final flush worked closes it itself: fclose(handle.release()).
using FileHandle = std::unique_ptr<FILE, FileCloser>;

// A descriptor, closed (once, never retried) when the holder ends; -1 holds nothing.
class CFdHolder {
 public:
  explicit CFdHolder(int l_nFd) : m_nFd(l_nFd) {}
  ~CFdHolder() {
    if (m_nFd >= 0) close(m_nFd);
  }
  CFdHolder(const CFdHolder&) = delete;
  CFdHolder& operator=(const CFdHolder&) = delete;
  int fGet() const { return m_nFd; }

 private:
  int m_nFd;
};
