// Directory creation, wildcard search of the working directory and the IPv4
// text check of the common library (declared in CommonFunc.h).
#include <dirent.h>
#include <fnmatch.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CommonFunc.h"
#include "CommonResult.h"
#include "Holders.h"

namespace {

constexpr mode_t DIRECTORY_MODE = 0770;  // owner and group; the umask applies
constexpr size_t IP_TEXT_MAX = 15;       // "255.255.255.255"
constexpr int IP_PART_MAX = 255;
constexpr int IP_INNER_PARTS = 3;  // parts followed by a dot
constexpr int IP_LETTER_SCAN = 3;  // characters of a part looked at for letters
constexpr size_t FOUND_NAME_SIZE = 256;  // the caller's buffer of fgFindFileName

// 1 when `l_pstrPart` is an accepted address part: no letter among its first
// three characters and a leading decimal number (strtol rules) within 0..255.
int fIPPartOk(const char* l_pstrPart) {
  for (int l_nIndx = 0; l_nIndx < IP_LETTER_SCAN && l_pstrPart[l_nIndx] != '\0'; ++l_nIndx) {
    if (isalpha(static_cast<unsigned char>(l_pstrPart[l_nIndx]))) return 0;
  }
  const long l_lValue = strtol(l_pstrPart, nullptr, 10);
  return (l_lValue >= 0 && l_lValue <= IP_PART_MAX) ? 1 : 0;
}

}  // namespace

int fgMakeDirectory(char* l_pstrDPath) {
  if (l_pstrDPath == nullptr || l_pstrDPath[0] == '\0') return RESULT_FAIL;
  {
    const DirHandle l_pstDir(opendir(l_pstrDPath));
    if (l_pstDir != nullptr) return RESULT_OK;
    if (errno != ENOENT) return RESULT_FAIL;
  }

  // The parent: drop the last character, then cut after the last '/', so
  // both "a/b/c/" and "a/b/c" give "a/b/".
  std::string l_strParent(l_pstrDPath);
  l_strParent.pop_back();
  const size_t l_nSlash = l_strParent.rfind('/');
  // A one-component relative path ("logs" or "logs/") has an empty parent:
  // that is the working directory, which exists, so only the path itself is
  // made.
  if (l_nSlash != std::string::npos) {
    l_strParent.resize(l_nSlash + 1);
    if (fgMakeDirectory(&l_strParent[0]) <= 0) return RESULT_FAIL;
  }

  if (mkdir(l_pstrDPath, DIRECTORY_MODE) == 0) return RESULT_OK;
  const int l_nErr = errno;
  struct stat l_stInfo;
  // Made meanwhile by someone else: the directory exists, which is the goal.
  if (l_nErr == EEXIST && stat(l_pstrDPath, &l_stInfo) == 0 && S_ISDIR(l_stInfo.st_mode)) return RESULT_OK;
  fprintf(stderr, "mkdir fail[%s][%s]", l_pstrDPath, strerror(l_nErr));
  return RESULT_FAIL;
}

int fgFindFileName(char* l_pstrPattern, char* l_pstrFileName) {
  if (l_pstrPattern == nullptr || l_pstrFileName == nullptr) return RESULT_REFUSED;
  const DirHandle l_pstDir(opendir("./"));
  if (l_pstDir == nullptr) return RESULT_REFUSED;
  while (struct dirent* l_pstEntry = readdir(l_pstDir.get())) {
    if (l_pstEntry->d_name[0] == '.') continue;  // hidden files, "." and ".."
    if (fnmatch(l_pstrPattern, l_pstEntry->d_name, 0) == 0) {
      fgStrCopy(l_pstrFileName, FOUND_NAME_SIZE, l_pstEntry->d_name);
      return RESULT_OK;
    }
  }
  return RESULT_REFUSED;
}

int fgIPCheck(char* l_pstrIP) {
  if (l_pstrIP == nullptr || strlen(l_pstrIP) > IP_TEXT_MAX) return 0;
  char l_strCopy[IP_TEXT_MAX + 1];
  fgStrCopy(l_strCopy, sizeof(l_strCopy), l_pstrIP);

  int l_nCounted = 0;
  char* l_pstrPart = l_strCopy;
  char* l_pstrDot;
  while (l_nCounted <= IP_INNER_PARTS && (l_pstrDot = strchr(l_pstrPart, '.')) != nullptr) {
    *l_pstrDot = '\0';
    if (fIPPartOk(l_pstrPart) == 0) break;
    ++l_nCounted;
    l_pstrPart = l_pstrDot + 1;
  }
  if (l_nCounted != IP_INNER_PARTS) return 0;
  // After exactly three counted parts, l_pstrPart is the text after the third
  // dot; if a fourth part ended at a dot and was rejected, that dot is now a
  // NUL, which cannot turn a rejected part into an accepted one.
  return fIPPartOk(l_pstrPart);
}

int fgReplaceFile(const char* path, const char* text, size_t size, int mode, bool sync) {
  const std::string l_strTemp = std::string(path) + ".tmp";
  const int l_nFd = fgOpen(l_strTemp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
  if (l_nFd < 0) return RESULT_FAIL;
  bool l_bOk = fchmod(l_nFd, static_cast<mode_t>(mode)) == 0;
  for (size_t l_nDone = 0; l_bOk && l_nDone < size;) {
    const ssize_t l_nWritten = write(l_nFd, text + l_nDone, size - l_nDone);
    if (l_nWritten < 0 && errno == EINTR) continue;
    l_bOk = l_nWritten > 0;
    if (l_bOk) l_nDone += static_cast<size_t>(l_nWritten);
  }
  l_bOk = l_bOk && (!sync || fsync(l_nFd) == 0);
  int l_nErrno = errno;
  if (close(l_nFd) != 0 && l_bOk) l_bOk = false, l_nErrno = errno;
  if (l_bOk && rename(l_strTemp.c_str(), path) != 0) l_bOk = false, l_nErrno = errno;
  if (!l_bOk) {
    unlink(l_strTemp.c_str());
    errno = l_nErrno;
    return RESULT_FAIL;
  }
  if (sync) {
    const char* l_pstrSlash = strrchr(path, '/');
    const std::string l_strDir = l_pstrSlash == nullptr ? "." : l_pstrSlash == path ? "/" : std::string(path, l_pstrSlash);
    const int l_nDir = fgOpen(l_strDir.c_str(), O_RDONLY | O_DIRECTORY, 0);
    if (l_nDir >= 0) fsync(l_nDir), close(l_nDir);
  }
  return RESULT_OK;
}
