#include "BFileReadWrite.h"

#include <cstdio>

#include "Holders.h"

namespace {

constexpr size_t TTY_NAME_SIZE = sizeof(ST_BFILE_RECORD::l_pstrTTYName);

}  // namespace

int BFileWrite(char* l_pstrFileName, int l_nPid, int l_nStatus, char* l_pstrTTYName) {
  if (l_pstrFileName == nullptr || l_pstrTTYName == nullptr) return -1;
  FileHandle l_pstFile(fopen(l_pstrFileName, "wbe"));  // "e": close-on-exec
  if (l_pstFile == nullptr) return -1;
  if (fwrite(&l_nPid, sizeof(l_nPid), 1, l_pstFile.get()) != 1) return -1;
  if (fwrite(&l_nStatus, sizeof(l_nStatus), 1, l_pstFile.get()) != 1) return -1;
  if (fwrite(l_pstrTTYName, TTY_NAME_SIZE, 1, l_pstFile.get()) != 1) return -1;
  // The data reaches the file only when the stream is flushed.
  return fclose(l_pstFile.release()) == 0 ? 1 : -1;
}

int BFileRead(char* l_pstrFileName, int* l_nPid, int* l_nStatus, char* l_pstrTTYName) {
  if (l_pstrFileName == nullptr || l_nPid == nullptr || l_nStatus == nullptr || l_pstrTTYName == nullptr) return -1;
  FileHandle l_pstFile(fopen(l_pstrFileName, "rbe"));
  if (l_pstFile == nullptr) return -1;
  if (fread(l_nPid, sizeof(*l_nPid), 1, l_pstFile.get()) != 1) return -1;
  if (fread(l_nStatus, sizeof(*l_nStatus), 1, l_pstFile.get()) != 1) return -1;
  if (fread(l_pstrTTYName, TTY_NAME_SIZE, 1, l_pstFile.get()) != 1) return -1;
  return 1;
}
