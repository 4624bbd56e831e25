// POSITION_FILE: the watched logs' read positions, kept on disk so that a
// restart goes on where the last run stopped instead of taking each log
// type's first look (the end of the file for type 0: lines written while the
// agent was down were lost; the start for type 2: its events came again).
//
// After every cycle that moved an entry's file or offset, the file holds for
// every entry: its number, configured name, log and create types, the file
// its name resolved to, that file's identity (device, inode, and a hash of
// its first bytes, so that a reused inode is not taken for the old file) and
// the offset. It is replaced atomically: a temporary file beside it, written
// and synced, renamed over it, and the directory synced.
//
// At start-up an entry resumes at its saved offset when its record names the
// same configuration and its file is still the same file; otherwise the
// record is dropped with a diagnostic record saying why, and the entry takes
// its first look. A missing, unreadable or malformed position file gives one
// record and the first look for every entry: never a refusal to start.
//
// Not handled: a file rotated while the agent was down (renamed, or a dated
// or wildcard name that moved on) is not looked for under its new name; its
// record is dropped and the lines appended to it after the last cycle are not
// read. Single-threaded, like the gather cycle.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CommonConst.h"

class CColumnLogger;

class CPositionFile {
 public:
  explicit CPositionFile(const char* l_pstrPath) : m_strPath(l_pstrPath) {}

  // Before the first cycle: reads the file and positions every entry whose
  // record still fits (see above), with one diagnostic record per entry.
  void fRestore(CColumnLogger& l_clLogger);

  // After a cycle: saves when any entry's file or offset differs from the
  // last save, or always with `l_bForce`. 1 saved or nothing to save; -1
  // failed, with one diagnostic record per change from saved to failed and back.
  int fSave(CColumnLogger& l_clLogger, bool l_bForce = false);

  // The bytes hashed for a file's identity: its first ones, up to this many.
  static constexpr long FINGERPRINT_BYTES = 256;

 private:
  struct ST_RECORD {
    int m_nIndx = 0;
    int m_nLogType = 0;
    int m_nCreateType = 0;
    std::string m_strName;  // the configured name
    std::string m_strFile;  // the file it resolved to (empty: none read yet)
    dev_t m_stDev = 0;
    ino_t m_stIno = 0;
    long m_lPrintLen = 0;        // bytes hashed
    uint64_t m_ulPrint = 0;      // their hash
    long m_lOffSet = 0;          // bytes up to the end of the last complete line read
  };
  // Parses the file; false (with the reason) when it is malformed.
  bool fParse(const std::string& l_strText, std::vector<ST_RECORD>* l_pvstOut, std::string* l_pstrWhy) const;
  // Device, inode and the hash of the first bytes of `l_strFile` (at most
  // `l_lLimit`, and at most FINGERPRINT_BYTES); false when it cannot be read.
  static bool fIdentity(const std::string& l_strFile, long l_lLimit, ST_RECORD* l_pstOut);

  std::string m_strPath;
  std::vector<ST_RECORD> m_vstSaved;  // what the file holds now
  bool m_bFailing = false;
};
