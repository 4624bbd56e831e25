#include "CommonFunc.h"

#include <fcntl.h>
#include <sys/select.h>

#include <cerrno>
#include <cstring>

int fgUSleep(int l_nUSec) {
  if (l_nUSec <= 0) l_nUSec = 1000;
  struct timeval l_stWait;
  l_stWait.tv_sec = l_nUSec / 1000000;
  l_stWait.tv_usec = l_nUSec % 1000000;
  // No descriptors: select only waits, and a signal ends the wait early.
  select(0, nullptr, nullptr, nullptr, &l_stWait);
  return 1;
}

int fgShellWord(const char* l_pstrText) {
  for (const unsigned char* l_pchPos = reinterpret_cast<const unsigned char*>(l_pstrText); *l_pchPos != '\0';
       ++l_pchPos) {
    const unsigned char l_ch = *l_pchPos;
    if (l_ch >= 0x80 || (l_ch >= '0' && l_ch <= '9') || (l_ch >= 'a' && l_ch <= 'z') || (l_ch >= 'A' && l_ch <= 'Z'))
      continue;
    if (strchr("/._-+,@%:=", l_ch) == nullptr) return 0;
  }
  return 1;
}

int fgStrCopy(char* dst, size_t size, const char* src) {
  if (dst == nullptr || size == 0) return 0;
  if (src == nullptr) {
    dst[0] = '\0';
    return 1;
  }
  const size_t l_nLen = strnlen(src, size);
  if (l_nLen < size) {
    memcpy(dst, src, l_nLen + 1);
    return 1;
  }
  memcpy(dst, src, size - 1);
  dst[size - 1] = '\0';
  return 0;
}

int fgOpen(const char* path, int flags, int mode) {
  int l_nFd;
  do {
    l_nFd = open(path, flags | O_CLOEXEC, mode);
  } while (l_nFd < 0 && errno == EINTR);
  return l_nFd;
}
