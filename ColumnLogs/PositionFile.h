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
// A file rotated while the agent was down is looked for by its identity: under
// its old name (a dated or wildcard name that moved on), under another name in
// its directory (renamed), or as a copy beside it (copytruncate). Found, it is
// handed to the follower (LogFollower.h), which reads it to its end at the
// first turn before the file the name means now is read from its start. Not
// found, the record is dropped and the file the name means now is read from its
// start: everything in it was written after the last save.
// Single-threaded, like the gather cycle.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CommonConst.h"
#include "FileIdentity.h"

class CColumnLogger;
class CLogFollower;

class CPositionFile {
 public:
  // `l_rclFollower` takes the files found under another name at start-up.
  CPositionFile(const char* l_pstrPath, CLogFollower& l_rclFollower) : m_strPath(l_pstrPath), m_rclFollower(l_rclFollower) {}

  // Before the first cycle: reads the file and positions every entry whose
  // record still fits (see above), with one diagnostic record per entry.
  void fRestore(CColumnLogger& l_clLogger);

  // After a cycle: saves when any entry's file or offset differs from the
  // last save, or always with `l_bForce`. 1 saved or nothing to save; -1
  // failed, with one diagnostic record per change from saved to failed and back.
  int fSave(CColumnLogger& l_clLogger, bool l_bForce = false);

 private:
  struct ST_RECORD {
    int m_nIndx = 0;
    int m_nLogType = 0;
    int m_nCreateType = 0;
    std::string m_strName;  // the configured name
    std::string m_strFile;  // the file it resolved to (empty: none read yet)
    ST_FILE_ID m_stId;      // that file's identity
    long m_lOffSet = 0;     // bytes up to the end of the last complete line read
  };
  // Parses the file; false (with the reason) when it is malformed.
  bool fParse(const std::string& l_strText, std::vector<ST_RECORD>* l_pvstOut, std::string* l_pstrWhy) const;
  // Positions the entry of one record; a record that no longer fits gets the
  // reason it was dropped.
  void fRestoreOne(CColumnLogger& l_clLogger, const ST_RECORD& l_stRecord);

  std::string m_strPath;
  CLogFollower& m_rclFollower;
  std::vector<ST_RECORD> m_vstSaved;  // what the file holds now
  bool m_bFailing = false;
};
