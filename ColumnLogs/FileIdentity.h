// Which file a watched log's bytes are in, told apart from other files that
// had or have its name: the device and inode, and a hash of the file's first
// bytes, so that an inode reused for a new file, or a file truncated and
// written again, is not taken for the one that was read.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

struct ST_FILE_ID {
  dev_t m_stDev = 0;
  ino_t m_stIno = 0;
  long m_lPrintLen = 0;    // bytes hashed: the first ones, at most FINGERPRINT_BYTES
  uint64_t m_ulPrint = 0;  // their FNV-1a hash
};

// The bytes hashed for an identity: a file's first ones, up to this many.
constexpr long FINGERPRINT_BYTES = 256;

// The identity of the regular file open on `l_nFd`, hashing its first
// `l_lLimit` bytes (at most FINGERPRINT_BYTES, fewer when the file is
// shorter). The file position does not move. False when the descriptor is not
// a regular file or cannot be read.
bool fgFileIdentity(int l_nFd, long l_lLimit, ST_FILE_ID* l_pstOut);
// The same for a path (opened for reading and closed again).
bool fgFileIdentity(const char* l_pstrPath, long l_lLimit, ST_FILE_ID* l_pstOut);

// True when the file open on `l_nFd` is `l_stWas`: the same device and inode,
// and the same first bytes (as many as were hashed then).
bool fgSameFile(int l_nFd, const ST_FILE_ID& l_stWas);

// How a file found by fgFindFile continues the one that was read.
enum EN_FOUND { FOUND_NONE, FOUND_SAME_FILE, FOUND_COPY };

// Looks in the directory of `l_strWas` (the path `l_stWas` was read under)
// for the file that `l_stWas` is now (renamed: same device, inode and first
// bytes) and, failing that, for a copy of it (a regular file whose name starts
// with that of `l_strWas`, with the same first bytes and at least `l_lMinSize`
// bytes; the newest such). Its path goes to `*l_pstrFound`.
EN_FOUND fgFindFile(const std::string& l_strWas, const ST_FILE_ID& l_stWas, off_t l_lMinSize, std::string* l_pstrFound);

// True when the file open on `l_nFd` holds a line end after offset `l_lFrom`,
// looking at most at the next 64 KiB: a whole line there is still to be read.
bool fgLineAfter(int l_nFd, off_t l_lFrom);
