#include "BFileReadWrite.h"

#include <cstdio>

namespace {

constexpr size_t TTY_NAME_SIZE = sizeof(ST_BFILE_RECORD::l_pstrTTYName);

// Closes the stream on every way out.
class CFileHolder {
 public:
  CFileHolder(const char* l_pstrPath, const char* l_pstrMode) : m_pstFile(fopen(l_pstrPath, l_pstrMode)) {}
  ~CFileHolder() {
    if (m_pstFile != nullptr) fclose(m_pstFile);
  }
  CFileHolder(const CFileHolder&) = delete;
  CFileHolder& operator=(const CFileHolder&) = delete;
  FILE* fGet() const { return m_pstFile; }
  // Closes now; 0 when the close (the final flush) failed.
  int fClose() {
    FILE* l_pstFile = m_pstFile;
    m_pstFile = nullptr;
    return (l_pstFile == nullptr || fclose(l_pstFile) == 0) ? 1 : 0;
  }

 private:
  FILE* m_pstFile;
};

}  // namespace

int BFileWrite(char* l_pstrFileName, int l_nPid, int l_nStatus, char* l_pstrTTYName) {
  if (l_pstrFileName == nullptr || l_pstrTTYName == nullptr) return -1;
  CFileHolder l_clFile(l_pstrFileName, "wbe");  // "e": close-on-exec
  FILE* l_pstFile = l_clFile.fGet();
  if (l_pstFile == nullptr) return -1;
  if (fwrite(&l_nPid, sizeof(l_nPid), 1, l_pstFile) != 1) return -1;
  if (fwrite(&l_nStatus, sizeof(l_nStatus), 1, l_pstFile) != 1) return -1;
  if (fwrite(l_pstrTTYName, TTY_NAME_SIZE, 1, l_pstFile) != 1) return -1;
  // The data reaches the file only when the stream is flushed.
  return l_clFile.fClose() == 1 ? 1 : -1;
}

int BFileRead(char* l_pstrFileName, int* l_nPid, int* l_nStatus, char* l_pstrTTYName) {
  if (l_pstrFileName == nullptr || l_nPid == nullptr || l_nStatus == nullptr || l_pstrTTYName == nullptr) return -1;
  CFileHolder l_clFile(l_pstrFileName, "rbe");
  FILE* l_pstFile = l_clFile.fGet();
  if (l_pstFile == nullptr) return -1;
  if (fread(l_nPid, sizeof(*l_nPid), 1, l_pstFile) != 1) return -1;
  if (fread(l_nStatus, sizeof(*l_nStatus), 1, l_pstFile) != 1) return -1;
  if (fread(l_pstrTTYName, TTY_NAME_SIZE, 1, l_pstFile) != 1) return -1;
  return 1;
}
