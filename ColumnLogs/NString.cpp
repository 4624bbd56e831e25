#include "NString.h"

#include <cstring>

char* Nstrtok(char* l_pstrString, const char* l_pstrDelim, char** l_ppstrSave) {
  if (l_ppstrSave == nullptr) return nullptr;
  if (l_pstrString == nullptr) l_pstrString = *l_ppstrSave;
  if (l_pstrString == nullptr) return nullptr;
  if (l_pstrDelim == nullptr) l_pstrDelim = "";

  char* l_pstrPos = strpbrk(l_pstrString, l_pstrDelim);
  if (l_pstrPos == nullptr) {
    *l_ppstrSave = nullptr;
    return l_pstrString;
  }
  // The whole run of delimiters separates this token from the next one.
  while (*l_pstrPos != '\0' && strchr(l_pstrDelim, *l_pstrPos) != nullptr) {
    *l_pstrPos++ = '\0';
  }
  *l_ppstrSave = l_pstrPos;
  return l_pstrString;
}

char* Nstrstrtok(char* l_pstrString, const char* l_pstrSep, char** l_ppstrSave) {
  if (l_ppstrSave == nullptr) return nullptr;
  if (l_pstrString == nullptr) l_pstrString = *l_ppstrSave;
  if (l_pstrString == nullptr) return nullptr;
  if (l_pstrSep == nullptr) l_pstrSep = "";

  char* l_pstrPos = strstr(l_pstrString, l_pstrSep);
  if (l_pstrPos == nullptr) {
    *l_ppstrSave = nullptr;
  } else {
    const size_t l_nSepLen = strlen(l_pstrSep);
    memset(l_pstrPos, 0, l_nSepLen);
    *l_ppstrSave = l_pstrPos + l_nSepLen;
  }
  return l_pstrString;
}

namespace {

// The one column copier behind NstrOnetok and NstrDoubletok.
int fCopyColumn(char* l_pstrDest, char* l_pstrSrc, char l_chDelim1, char l_chDelim2, char** l_ppstrNext) {
  if (l_pstrSrc == nullptr || l_pstrDest == nullptr) return 0;
  char* l_pstrPos = l_pstrSrc;
  char* l_pstrOut = l_pstrDest;
  while (*l_pstrPos != '\0' && *l_pstrPos != l_chDelim1 && *l_pstrPos != l_chDelim2) *l_pstrOut++ = *l_pstrPos++;
  if (*l_pstrPos != '\0') ++l_pstrPos;  // the delimiter is consumed, not copied
  *l_pstrOut = '\0';
  if (l_ppstrNext != nullptr) *l_ppstrNext = l_pstrPos;
  return static_cast<int>(l_pstrPos - l_pstrSrc);
}

}  // namespace

int NstrOnetok(char* l_pstrDest, char* l_pstrSrc, char l_chDelim, char** l_ppstrNext) {
  return fCopyColumn(l_pstrDest, l_pstrSrc, l_chDelim, l_chDelim, l_ppstrNext);
}

int NstrDoubletok(char* l_pstrDest, char* l_pstrSrc, char l_chDelim1, char l_chDelim2, char** l_ppstrNext) {
  return fCopyColumn(l_pstrDest, l_pstrSrc, l_chDelim1, l_chDelim2, l_ppstrNext);
}

int Nisdigit(const char* l_pstrString) {
  if (l_pstrString == nullptr || l_pstrString[0] == '\0') return 0;
  const char* l_pstrPos = l_pstrString;
  if (*l_pstrPos == '+' || *l_pstrPos == '-') ++l_pstrPos;
  for (; *l_pstrPos != '\0'; ++l_pstrPos) {
    if (*l_pstrPos < '0' || *l_pstrPos > '9') return 0;
  }
  return 1;
}

char* NCutQmark(char* l_pstrString) {
  if (l_pstrString == nullptr) return nullptr;
  char* l_pstrQuote = strchr(l_pstrString, '"');
  if (l_pstrQuote == nullptr) return l_pstrString;
  char* l_pstrStart = l_pstrQuote + 1;
  char* l_pstrBlank = strchr(l_pstrStart, ' ');
  if (l_pstrBlank != nullptr) *l_pstrBlank = '\0';
  return l_pstrStart;
}
