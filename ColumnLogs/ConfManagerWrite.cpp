// Write side of the configuration store: options changed in memory and the
// file rewritten under the lock.
//
// The old file is read line by line, each line whole whatever its length.
// The rewrite keeps its text wherever the store has nothing to say about a
// line:
//   - comments, blank lines and other lines without '=' are copied whole;
//   - a key line that the reader loaded is written as "key=value\n" with the
//     value the store holds for that key (the first entry), or left out when
//     the store no longer holds the key (deleted);
//   - a key line that the reader did not load whole (longer than its read
//     piece) is copied unchanged while the store still holds what the reader
//     took from it, and rewritten only when that value was changed;
//   - a key line that the reader ignored ("KEY=" at the end of the file) is
//     copied.
// Without a section, added options go at the end of the file. With a
// section selected:
//   - only the section the reader loads (the file's first header, before
//     any other line that is not a comment) is rewritten; everything else
//     (lines before a first header naming another section, a file whose
//     first line is no header, other sections, the rest of the file after
//     the section) is copied unchanged;
//   - added options go at the end of the selected section, before the
//     comments and blank lines that close it; the selected section found
//     further down the file counts too (its lines are then copied as they
//     are, since the reader did not load them); without the section in the
//     file, "[name]" and the options are appended.
// Refusals leave the file unchanged (the temporary file keeps what was
// written, and the next rewrite empties it):
//   - a rewritten or added line over WRITE_LINE_MAX characters;
//   - a file name that does not fit the shell commands (beyond 161
//     characters) or holds characters the shell would interpret.
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfManager.h"

namespace {

// The temporary file, written one line per write call; a write that does
// not take the whole line is a failure.
class CLineWriter {
 public:
  explicit CLineWriter(int l_nFd) : m_nFd(l_nFd), m_bLineStart(true) {}

  // A line of the old file, byte for byte. 1 written, 0 failed.
  int fCopy(const char* l_pstrText, size_t l_nLen) {
    if (l_nLen == 0) return 1;
    ssize_t l_nWritten;
    do {
      l_nWritten = write(m_nFd, l_pstrText, l_nLen);
    } while (l_nWritten < 0 && errno == EINTR);
    if (l_nWritten != static_cast<ssize_t>(l_nLen)) return 0;
    m_bLineStart = l_pstrText[l_nLen - 1] == '\n';
    return 1;
  }
  // A line the store makes. When the old file's last line had no newline,
  // one is written first, so the new line does not run into it.
  int fLine(const char* l_pstrText, size_t l_nLen) {
    if (!m_bLineStart && fCopy("\n", 1) == 0) return 0;
    return fCopy(l_pstrText, l_nLen);
  }

 private:
  int m_nFd;
  bool m_bLineStart;  // nothing written yet, or the last byte was a newline
};

// What one line of the old file is, for the rewrite.
enum EN_LINE_KIND {
  LINE_FILLER,  // a comment or a line of blanks only
  LINE_HEADER,  // a line with '[' (not a comment)
  LINE_KEY,     // a line with '=' (no '[', not a comment)
  LINE_OTHER,   // any other line
};

const char* fSkipSpaces(const char* l_pstrLine) {
  while (*l_pstrLine == ' ') ++l_pstrLine;
  return l_pstrLine;
}

EN_LINE_KIND fLineKind(const char* l_pstrPos) {
  if (*l_pstrPos == '#') return LINE_FILLER;
  if (strchr(l_pstrPos, '[') != nullptr) return LINE_HEADER;
  if (strchr(l_pstrPos, '=') != nullptr) return LINE_KEY;
  if (l_pstrPos[strspn(l_pstrPos, " \t\r\n")] == '\0') return LINE_FILLER;
  return LINE_OTHER;
}

// 1 when the line (leading spaces skipped) is a header naming `l_pstrName`
// under the reader's rule: the text from the second character up to the
// first ']' after it.
int fHeaderNames(const char* l_pstrPos, const char* l_pstrName) {
  if (strchr(l_pstrPos, '[') == nullptr || *l_pstrPos == '\0') return 0;
  const char* l_pstrClose = strchr(l_pstrPos + 1, ']');
  if (l_pstrClose == nullptr) return 0;
  const size_t l_nLen = static_cast<size_t>(l_pstrClose - (l_pstrPos + 1));
  return (l_nLen == strlen(l_pstrName) && memcmp(l_pstrPos + 1, l_pstrName, l_nLen) == 0) ? 1 : 0;
}

// Writes "key=value\n". 1 written; 0 failed or refused as too long.
int fWriteOption(CLineWriter& l_clOut, const char* l_pstrFileName, const char* l_pstrKey, const char* l_pstrValue) {
  char l_strLine[CConfManager::WRITE_LINE_MAX + 1];
  const int l_nLen = snprintf(l_strLine, sizeof(l_strLine), "%s=%s\n", l_pstrKey, l_pstrValue);
  if (l_nLen < 0 || l_nLen > CConfManager::WRITE_LINE_MAX) {
    fprintf(stderr, "%s conf line too long(file write) : [%s]\n", l_pstrFileName, l_pstrKey);
    return 0;
  }
  return l_clOut.fLine(l_strLine, static_cast<size_t>(l_nLen));
}

// Writes every entry of `l_pclBuffer` in index order. 1 done, 0 failed.
int fWriteBuffer(CLineWriter& l_clOut, const char* l_pstrFileName, CObjectBuffer* l_pclBuffer) {
  if (l_pclBuffer == nullptr) return 1;
  const int l_nSize = l_pclBuffer->fGetSize();
  int l_nSeen = 0;
  for (int l_nIndex = 1; l_nSeen < l_nSize; ++l_nIndex) {
    char* l_pstrKey = l_pclBuffer->fGetObjectKey(l_nIndex);
    if (l_pstrKey == nullptr) continue;
    ++l_nSeen;
    const char* l_pstrValue = static_cast<const char*>(l_pclBuffer->fGetObject(l_nIndex));
    if (fWriteOption(l_clOut, l_pstrFileName, l_pstrKey, l_pstrValue != nullptr ? l_pstrValue : "") == 0) return 0;
  }
  return 1;
}

// Writes one key line of the old file as the rewrite rules above say.
// `l_nPiece` is the reader's piece length for this line. 1 done, 0 failed.
int fWriteKeyLine(CLineWriter& l_clOut, const char* l_pstrFileName, CObjectBuffer* l_pclRead, const char* l_pstrLine,
                  size_t l_nLen, size_t l_nPiece) {
  const bool l_bNewline = l_nLen > 0 && l_pstrLine[l_nLen - 1] == '\n';
  const size_t l_nTextLen = l_bNewline ? l_nLen - 1 : l_nLen;

  // What the reader saw of this line: its first piece, up to a NUL byte.
  size_t l_nView = l_nTextLen < l_nPiece ? l_nTextLen : l_nPiece;
  if (const void* l_pvdNul = memchr(l_pstrLine, '\0', l_nView)) {
    l_nView = static_cast<size_t>(static_cast<const char*>(l_pvdNul) - l_pstrLine);
  }
  const bool l_bWhole = l_nView == l_nTextLen;
  // The reader's view ends before the line does (cut by its piece or a NUL).
  const bool l_bViewCut = !l_bWhole || (l_bNewline && l_nTextLen >= l_nPiece);

  size_t l_nStart = 0;
  while (l_nStart < l_nView && l_pstrLine[l_nStart] == ' ') ++l_nStart;
  const void* l_pvdEq = memchr(l_pstrLine + l_nStart, '=', l_nView - l_nStart);
  if (l_pvdEq == nullptr) return l_clOut.fCopy(l_pstrLine, l_nLen);  // never a key line to the reader
  const size_t l_nEq = static_cast<size_t>(static_cast<const char*>(l_pvdEq) - l_pstrLine);
  size_t l_nValue = l_nEq;
  while (l_nValue < l_nView && l_pstrLine[l_nValue] == '=') ++l_nValue;
  // A '=' run at the end of a cut view: the reader took no key from it, and
  // the rest of the line is not ours to drop. (A last line without its line
  // end is a key line like any other.)
  if (l_nValue == l_nView && l_bViewCut) return l_clOut.fCopy(l_pstrLine, l_nLen);

  std::string l_strKey(l_pstrLine + l_nStart, l_nEq - l_nStart);
  const char* l_pstrHeld = static_cast<const char*>(l_pclRead != nullptr ? l_pclRead->fGetObject(&l_strKey[0]) : nullptr);
  if (l_pstrHeld == nullptr) return 1;  // deleted: the line is left out
  if (!l_bWhole && l_nView - l_nValue == strlen(l_pstrHeld) &&
      memcmp(l_pstrLine + l_nValue, l_pstrHeld, l_nView - l_nValue) == 0) {
    return l_clOut.fCopy(l_pstrLine, l_nLen);  // unchanged, and the store holds only its start
  }
  return fWriteOption(l_clOut, l_pstrFileName, l_strKey.c_str(), l_pstrHeld);
}

// Frees what getline allocated, on every way out.
struct CLineBuffer {
  char* m_pstrLine = nullptr;
  size_t m_nCapacity = 0;
  ~CLineBuffer() { free(m_pstrLine); }
};

// Where the rewrite is in a file with a section selected.
enum EN_PLACE {
  PLACE_NO_SECTION,    // no section selected: the whole file is rewritten
  PLACE_SEARCH,        // before the first line that is neither a comment nor skipped
  PLACE_OTHER,         // the reader loaded nothing; looking for the section further down
  PLACE_READ_SECTION,  // in the section the reader loaded
  PLACE_PLAIN_SECTION, // in the selected section further down (copied as it is)
  PLACE_AFTER,         // after the selected section
};

// A heap copy of the text (the store's values), or null without memory.
char* fCopyText(const char* l_pstrText) {
  const size_t l_nLen = strlen(l_pstrText);
  char* l_pstrCopy = new (std::nothrow) char[l_nLen + 1];
  if (l_pstrCopy != nullptr) memcpy(l_pstrCopy, l_pstrText, l_nLen + 1);
  return l_pstrCopy;
}

}  // namespace

int CConfManager::fOptionWritable(const char* l_pstrKey, const char* l_pstrValue) {
  if (l_pstrKey == nullptr || l_pstrValue == nullptr) return 0;
  if (l_pstrKey[0] == ' ' || l_pstrKey[0] == '#' || strpbrk(l_pstrKey, "=\n") != nullptr) return 0;
  if (strchr(l_pstrValue, '\n') != nullptr) return 0;
  if (m_strSubKey[0] != '\0' && (strchr(l_pstrKey, '[') != nullptr || strchr(l_pstrValue, '[') != nullptr)) return 0;
  return 1;
}

int CConfManager::fAddOpt(char* l_pstrKey, char* l_pstrValue) {
  if (m_pclAddBuffer == nullptr) return RESULT_FAIL;
  if (fOptionWritable(l_pstrKey, l_pstrValue) == 0) return RESULT_REFUSED;
  char* l_pstrCopy = fCopyText(l_pstrValue);
  if (l_pstrCopy == nullptr) return RESULT_FAIL;
  const int l_nIndex = m_pclAddBuffer->fObjectPut(l_pstrKey, l_pstrCopy);
  if (l_nIndex <= 0) delete[] l_pstrCopy;
  return l_nIndex;
}

int CConfManager::fUpdateOpt(char* l_pstrKey, char* l_pstrValue) {
  if (fOptionWritable(l_pstrKey, l_pstrValue) == 0) return RESULT_REFUSED;
  for (CObjectBuffer* l_pclBuffer : {m_pclObjectBuffer, m_pclAddBuffer}) {
    if (l_pclBuffer == nullptr) continue;
    char* l_pstrOld = static_cast<char*>(l_pclBuffer->fGetObject(l_pstrKey));
    if (l_pstrOld == nullptr) continue;
    char* l_pstrCopy = fCopyText(l_pstrValue);
    if (l_pstrCopy == nullptr) return RESULT_REFUSED;  // the old value stays
    delete[] l_pstrOld;
    return l_pclBuffer->fSetObject(l_pstrKey, l_pstrCopy) != nullptr ? RESULT_OK : RESULT_REFUSED;
  }
  return RESULT_REFUSED;
}

int CConfManager::fDeleteOpt(char* l_pstrKey) {
  if (l_pstrKey == nullptr) return RESULT_REFUSED;
  for (CObjectBuffer* l_pclBuffer : {m_pclObjectBuffer, m_pclAddBuffer}) {
    if (l_pclBuffer == nullptr) continue;
    char* l_pstrOld = static_cast<char*>(l_pclBuffer->fGetObject(l_pstrKey));
    if (l_pstrOld == nullptr) continue;
    delete[] l_pstrOld;
    return l_pclBuffer->fObjectRemove(l_pstrKey);
  }
  return RESULT_REFUSED;
}

char* CConfManager::fGetOpt(int l_nPosition) {
  if (m_pclObjectBuffer == nullptr) return nullptr;
  void* l_pvdValue = m_pclObjectBuffer->fGetObject(l_nPosition);
  const int l_nReadSize = m_pclObjectBuffer->fGetSize();
  if (l_pvdValue == nullptr && l_nPosition > l_nReadSize && m_pclAddBuffer != nullptr) {
    l_pvdValue = m_pclAddBuffer->fGetObject(l_nPosition - l_nReadSize);
  }
  return static_cast<char*>(l_pvdValue);
}

char* CConfManager::fGetKey(int l_nPosition) {
  if (m_pclObjectBuffer == nullptr) return nullptr;
  char* l_pstrKey = m_pclObjectBuffer->fGetObjectKey(l_nPosition);
  const int l_nReadSize = m_pclObjectBuffer->fGetSize();
  if (l_pstrKey == nullptr && l_nPosition > l_nReadSize && m_pclAddBuffer != nullptr) {
    l_pstrKey = m_pclAddBuffer->fGetObjectKey(l_nPosition - l_nReadSize);
  }
  return l_pstrKey;
}

int CConfManager::fGetOptCount() {
  int l_nCount = 0;
  if (m_pclObjectBuffer != nullptr) l_nCount += m_pclObjectBuffer->fGetSize();
  if (m_pclAddBuffer != nullptr) l_nCount += m_pclAddBuffer->fGetSize();
  return l_nCount;
}

int CConfManager::fMakeRenameCommands(char* l_pstrCopyCmd, char* l_pstrMoveCmd) {
  const int l_nCopyLen = snprintf(l_pstrCopyCmd, SHELL_CMD_SIZE, "\\cp -f %s %s_b > %s_b.mv.out 2>&1", m_strFileName,
                                  m_strFileName, m_strFileName);
  const int l_nMoveLen = snprintf(l_pstrMoveCmd, SHELL_CMD_SIZE, "\\mv -f %s_ %s > %s.mv.out 2>&1", m_strFileName,
                                  m_strFileName, m_strFileName);
  return (l_nCopyLen >= 0 && l_nCopyLen < SHELL_CMD_SIZE && l_nMoveLen >= 0 && l_nMoveLen < SHELL_CMD_SIZE) ? 1 : 0;
}

int CConfManager::fReName() {
  char l_strRead[] = "r";
  char l_strWrite[] = "w";
  if (m_pstFd != nullptr) fClose(l_strRead);
  if (m_nWriteFd != 0) fClose(l_strWrite);
  char l_strCopyCmd[SHELL_CMD_SIZE];
  char l_strMoveCmd[SHELL_CMD_SIZE];
  // fFileWrite has checked that the commands fit before writing anything.
  if (fMakeRenameCommands(l_strCopyCmd, l_strMoveCmd) == 1) {
    // The statuses are not examined: the commands' output files tell.
    system(l_strCopyCmd);
    system(l_strMoveCmd);
  }
  return 1;
}

int CConfManager::fWriteContent(int l_nHaveInput) {
  CLineWriter l_clOut(m_nWriteFd);
  const bool l_bSection = m_strSubKey[0] != '\0';
  char l_strHeader[SUB_KEY_SIZE + 4];
  const int l_nHeaderLen = snprintf(l_strHeader, sizeof(l_strHeader), "[%s]\n", m_strSubKey);

  if (l_nHaveInput == 0) {
    // No old file: the buffers alone make the new one.
    if (l_bSection && l_clOut.fLine(l_strHeader, static_cast<size_t>(l_nHeaderLen)) == 0) return 0;
    if (fWriteBuffer(l_clOut, m_strFileName, m_pclObjectBuffer) == 0) return 0;
    return fWriteBuffer(l_clOut, m_strFileName, m_pclAddBuffer);
  }

  EN_PLACE l_enPlace = l_bSection ? PLACE_SEARCH : PLACE_NO_SECTION;
  // Comments and blank lines at the end of the selected section so far: the
  // added options go before them, so they stay with what follows.
  std::vector<std::string> l_vstrHeld;
  auto l_fnFlushHeld = [&]() -> int {
    for (const std::string& l_strHeld : l_vstrHeld) {
      if (l_clOut.fCopy(l_strHeld.data(), l_strHeld.size()) == 0) return 0;
    }
    l_vstrHeld.clear();
    return 1;
  };
  auto l_fnCloseSection = [&]() -> int {
    l_enPlace = PLACE_AFTER;
    if (fWriteBuffer(l_clOut, m_strFileName, m_pclAddBuffer) == 0) return 0;
    return l_fnFlushHeld();
  };

  CLineBuffer l_clLine;
  ssize_t l_nRead;
  errno = 0;
  while ((l_nRead = getline(&l_clLine.m_pstrLine, &l_clLine.m_nCapacity, m_pstFd)) > 0) {
    const char* l_pstrLine = l_clLine.m_pstrLine;
    const size_t l_nLen = static_cast<size_t>(l_nRead);
    const char* l_pstrPos = fSkipSpaces(l_pstrLine);
    const EN_LINE_KIND l_enKind = fLineKind(l_pstrPos);
    int l_nOk = 1;
    switch (l_enPlace) {
      case PLACE_NO_SECTION:
        // Without a section '[' means nothing: any non-comment line with '=' is a key line.
        l_nOk = (*l_pstrPos != '#' && strchr(l_pstrPos, '=') != nullptr)
                    ? fWriteKeyLine(l_clOut, m_strFileName, m_pclObjectBuffer, l_pstrLine, l_nLen, LINE_PIECE)
                    : l_clOut.fCopy(l_pstrLine, l_nLen);
        break;
      case PLACE_SEARCH:
        // The reader's rule: the first line that is not a comment decides,
        // except a line with '[' and no ']' after it, which it skips.
        if (*l_pstrPos != '#') {
          if (strchr(l_pstrPos, '[') == nullptr) {
            l_enPlace = PLACE_OTHER;
          } else if (strchr(l_pstrPos + 1, ']') != nullptr) {
            l_enPlace = fHeaderNames(l_pstrPos, m_strSubKey) ? PLACE_READ_SECTION : PLACE_OTHER;
          }
        }
        l_nOk = l_clOut.fCopy(l_pstrLine, l_nLen);
        break;
      case PLACE_OTHER:
        if (*l_pstrPos != '#' && fHeaderNames(l_pstrPos, m_strSubKey)) l_enPlace = PLACE_PLAIN_SECTION;
        l_nOk = l_clOut.fCopy(l_pstrLine, l_nLen);
        break;
      case PLACE_READ_SECTION:
      case PLACE_PLAIN_SECTION:
        if (l_enKind == LINE_FILLER) {
          l_vstrHeld.emplace_back(l_pstrLine, l_nLen);
        } else if (l_enKind == LINE_HEADER) {
          l_nOk = l_fnCloseSection() && l_clOut.fCopy(l_pstrLine, l_nLen);
        } else if (l_enKind == LINE_KEY && l_enPlace == PLACE_READ_SECTION) {
          l_nOk = l_fnFlushHeld() &&
                  fWriteKeyLine(l_clOut, m_strFileName, m_pclObjectBuffer, l_pstrLine, l_nLen, SECTION_LINE_PIECE);
        } else {
          l_nOk = l_fnFlushHeld() && l_clOut.fCopy(l_pstrLine, l_nLen);
        }
        break;
      case PLACE_AFTER:
        l_nOk = l_clOut.fCopy(l_pstrLine, l_nLen);
        break;
    }
    if (l_nOk == 0) return 0;
  }
  // A read error must not pass for the end of the file: the rest would be lost.
  if (ferror(m_pstFd)) return 0;

  switch (l_enPlace) {
    case PLACE_READ_SECTION:
    case PLACE_PLAIN_SECTION:
      // The section runs to the end of the file: nothing follows its closing
      // comments and blank lines, so they keep their place and the added
      // options come last.
      return l_fnFlushHeld() && fWriteBuffer(l_clOut, m_strFileName, m_pclAddBuffer);
    case PLACE_SEARCH:
    case PLACE_OTHER:
      // The selected section is not in the file: it is appended.
      if (m_pclAddBuffer == nullptr || m_pclAddBuffer->fGetSize() == 0) return 1;
      if (l_clOut.fLine(l_strHeader, static_cast<size_t>(l_nHeaderLen)) == 0) return 0;
      return fWriteBuffer(l_clOut, m_strFileName, m_pclAddBuffer);
    case PLACE_AFTER:
      return 1;
    case PLACE_NO_SECTION:
    default:
      return fWriteBuffer(l_clOut, m_strFileName, m_pclAddBuffer);
  }
}

int CConfManager::fFileWrite() {
  if (m_strFileName[0] == '\0') return 0;
  char l_strCopyCmd[SHELL_CMD_SIZE];
  char l_strMoveCmd[SHELL_CMD_SIZE];
  // The name goes unquoted into two shell commands: refuse it before
  // anything is touched when it does not fit or the shell would read it
  // differently.
  if (fMakeRenameCommands(l_strCopyCmd, l_strMoveCmd) == 0) {
    fprintf(stderr, "%s conf file name not usable(file write) : %s\n", m_strFileName, strerror(ENAMETOOLONG));
    return 0;
  }
  if (fgShellWord(m_strFileName) == 0) {
    fprintf(stderr, "%s conf file name not usable(file write) : %s\n", m_strFileName,
            "character the shell would interpret");
    return 0;
  }

  if (fSyncLock() != 1) {
    fprintf(stderr, "%s conf file lock failed(file write) : %s\n", m_strFileName, strerror(errno));
    return 0;
  }
  char l_strRead[] = "r";
  char l_strWrite[] = "w";
  const int l_nHaveInput = fOpen(l_strRead);
  if (fOpen(l_strWrite) != 1) {
    fClose(l_strRead);
    fSyncUnLock();
    return 0;
  }
  // The new text must be on disk before it replaces the old file.
  if (fWriteContent(l_nHaveInput) == 0 || fsync(m_nWriteFd) != 0) {
    fClose(l_strRead);
    fClose(l_strWrite);
    fSyncUnLock();
    return 0;
  }
  fClose(l_strRead);
  fClose(l_strWrite);
  fReName();

  // The added options are in the file now: they move to the read buffer
  // (the same value strings, now owned there).
  if (m_pclAddBuffer != nullptr) {
    const int l_nSize = m_pclAddBuffer->fGetSize();
    int l_nSeen = 0;
    for (int l_nIndex = 1; l_nSeen < l_nSize; ++l_nIndex) {
      char* l_pstrKey = m_pclAddBuffer->fGetObjectKey(l_nIndex);
      if (l_pstrKey == nullptr) continue;
      ++l_nSeen;
      char* l_pstrValue = static_cast<char*>(m_pclAddBuffer->fGetObject(l_nIndex));
      // Without memory for the entry the option lives on in the file only.
      if (m_pclObjectBuffer == nullptr || m_pclObjectBuffer->fObjectPut(l_pstrKey, l_pstrValue) <= 0) {
        delete[] l_pstrValue;
      }
    }
    m_pclAddBuffer->fFreeObjects();
  }
  fSyncUnLock();
  return 1;
}
