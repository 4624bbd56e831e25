#include "FileIdentity.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "CommonFunc.h"
#include "Holders.h"

namespace {

// The hash of the first `l_lLen` bytes of the file open on `l_nFd`; false when
// fewer can be read.
bool fPrint(int l_nFd, long l_lLen, uint64_t* l_pulOut) {
  char l_strHead[FINGERPRINT_BYTES];
  const ssize_t l_nRead = pread(l_nFd, l_strHead, static_cast<size_t>(l_lLen), 0);
  if (l_nRead != l_lLen) return false;
  uint64_t l_ulHash = 1469598103934665603ULL;
  for (ssize_t l_nAt = 0; l_nAt < l_nRead; ++l_nAt)
    l_ulHash = (l_ulHash ^ static_cast<unsigned char>(l_strHead[l_nAt])) * 1099511628211ULL;
  *l_pulOut = l_ulHash;
  return true;
}

}  // namespace

bool fgFileIdentity(int l_nFd, long l_lLimit, ST_FILE_ID* l_pstOut) {
  struct stat l_stStat;
  if (fstat(l_nFd, &l_stStat) != 0 || !S_ISREG(l_stStat.st_mode)) return false;
  const long l_lLen = std::max(0L, std::min({l_lLimit, FINGERPRINT_BYTES, static_cast<long>(l_stStat.st_size)}));
  if (!fPrint(l_nFd, l_lLen, &l_pstOut->m_ulPrint)) return false;
  l_pstOut->m_stDev = l_stStat.st_dev;
  l_pstOut->m_stIno = l_stStat.st_ino;
  l_pstOut->m_lPrintLen = l_lLen;
  return true;
}

bool fgFileIdentity(const char* l_pstrPath, long l_lLimit, ST_FILE_ID* l_pstOut) {
  const CFdHolder l_clFd(fgOpen(l_pstrPath, O_RDONLY | O_NONBLOCK, 0));
  return l_clFd.fGet() >= 0 && fgFileIdentity(l_clFd.fGet(), l_lLimit, l_pstOut);
}

bool fgSameFile(int l_nFd, const ST_FILE_ID& l_stWas) {
  ST_FILE_ID l_stNow;
  return fgFileIdentity(l_nFd, l_stWas.m_lPrintLen, &l_stNow) && l_stNow.m_stDev == l_stWas.m_stDev &&
         l_stNow.m_stIno == l_stWas.m_stIno && l_stNow.m_lPrintLen == l_stWas.m_lPrintLen &&
         l_stNow.m_ulPrint == l_stWas.m_ulPrint;
}

EN_FOUND fgFindFile(const std::string& l_strWas, const ST_FILE_ID& l_stWas, off_t l_lMinSize, std::string* l_pstrFound) {
  const size_t l_nSlash = l_strWas.rfind('/');
  const std::string l_strDir = l_strWas.substr(0, l_nSlash + 1), l_strStem = l_strWas.substr(l_nSlash + 1);
  DirHandle l_pstDir(opendir(l_strDir.empty() ? "." : l_strDir.c_str()));
  if (!l_pstDir) return FOUND_NONE;
  std::string l_strCopy;
  struct timespec l_stCopyTime = {};
  while (struct dirent* l_pstEntry = readdir(l_pstDir.get())) {
    if (strcmp(l_pstEntry->d_name, ".") == 0 || strcmp(l_pstEntry->d_name, "..") == 0) continue;
    const std::string l_strPath = l_strDir + l_pstEntry->d_name;
    struct stat l_stStat;
    if (stat(l_strPath.c_str(), &l_stStat) != 0 || !S_ISREG(l_stStat.st_mode)) continue;
    const bool l_bSameInode = l_stStat.st_dev == l_stWas.m_stDev && l_stStat.st_ino == l_stWas.m_stIno;
    const bool l_bCopyName = strncmp(l_pstEntry->d_name, l_strStem.c_str(), l_strStem.size()) == 0 &&
                             l_stStat.st_size >= l_lMinSize && l_stStat.st_size >= l_stWas.m_lPrintLen;
    if (!l_bSameInode && !l_bCopyName) continue;
    const CFdHolder l_clFd(fgOpen(l_strPath.c_str(), O_RDONLY | O_NONBLOCK, 0));
    ST_FILE_ID l_stNow;
    if (l_clFd.fGet() < 0 || !fgFileIdentity(l_clFd.fGet(), l_stWas.m_lPrintLen, &l_stNow) ||
        l_stNow.m_ulPrint != l_stWas.m_ulPrint)
      continue;
    if (l_bSameInode) {
      *l_pstrFound = l_strPath;
      return FOUND_SAME_FILE;
    }
    const bool l_bNewer = l_stStat.st_mtim.tv_sec > l_stCopyTime.tv_sec ||
                          (l_stStat.st_mtim.tv_sec == l_stCopyTime.tv_sec && l_stStat.st_mtim.tv_nsec > l_stCopyTime.tv_nsec);
    if (l_strCopy.empty() || l_bNewer) {
      l_strCopy = l_strPath;
      l_stCopyTime = l_stStat.st_mtim;
    }
  }
  if (l_strCopy.empty()) return FOUND_NONE;
  *l_pstrFound = l_strCopy;
  return FOUND_COPY;
}

bool fgLineAfter(int l_nFd, off_t l_lFrom) {
  static constexpr size_t LOOK_BYTES = 65536;
  std::unique_ptr<char[]> l_pstrBuf(new (std::nothrow) char[LOOK_BYTES]);
  if (!l_pstrBuf) return false;
  const ssize_t l_nRead = pread(l_nFd, l_pstrBuf.get(), LOOK_BYTES, l_lFrom);
  return l_nRead > 0 && memchr(l_pstrBuf.get(), '\n', static_cast<size_t>(l_nRead)) != nullptr;
}
