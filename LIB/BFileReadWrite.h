// The status record file: a process id, a status and a terminal name in
// exactly 264 bytes, integers in the host's byte order, no header.
#pragma once

#include <cstddef>
#include <cstdint>

// Byte layout of the file, field by field (the functions write and read the
// fields one by one; this record only pins the layout down).
struct ST_BFILE_RECORD {
  int32_t l_nPid;              // offset 0: process id
  int32_t l_nStatus;           // offset 4: status value
  char l_pstrTTYName[256];     // offset 8: terminal name, NUL-terminated, all 256 bytes stored
};
static_assert(sizeof(int) == sizeof(int32_t), "pid and status are stored as 4-byte ints");
static_assert(offsetof(ST_BFILE_RECORD, l_nStatus) == 4, "status at offset 4");
static_assert(offsetof(ST_BFILE_RECORD, l_pstrTTYName) == 8, "terminal name at offset 8");
static_assert(sizeof(ST_BFILE_RECORD) == 264, "the status record file is 264 bytes");

// Creates or truncates `l_pstrFileName` and writes the record; the 256 bytes
// of `l_pstrTTYName` are stored whole. Returns 1, or -1 when an argument is
// null or the file cannot be opened or written (a short file may be left).
int BFileWrite(char* l_pstrFileName, int l_nPid, int l_nStatus, char* l_pstrTTYName);

// Reads the first 264 bytes of `l_pstrFileName` into the three destinations
// (`l_pstrTTYName` holds at least 256 bytes). Returns 1, or -1 when an
// argument is null, the file cannot be opened or is shorter than a record;
// the destinations may then be partly filled. Later bytes are ignored.
int BFileRead(char* l_pstrFileName, int* l_nPid, int* l_nStatus, char* l_pstrTTYName);
