// FOLLOW_ROTATION=1: watched logs followed by identity, not only by name.
//
// Without it a turn reads whatever file the name means now: after a rotation
// by rename the lines appended to the old file since the last cycle are never
// read, and the new file is read from the old offset when it has already
// grown past it; a new dated or wildcard file is started while the rest of the
// previous one is left. With it the file a log is read from is held open
// between cycles, and at every turn that opens the name:
//   - the name means another file now (rename rotation, the next dated file, a
//     newer wildcard match): the held file is read to its end first, then let
//     go, and the new file is read from its start. While the new file is still
//     empty the held one goes on being read (its writer has not moved yet),
//     unless it is deleted;
//   - the same file, but shorter than the offset or with other first bytes
//     (copytruncate): the copy beside it (a file whose name starts with the
//     log's and that has the same first bytes) is read from the offset to its
//     end first, then the truncated file from its start;
//   - the name cannot be opened: the held file is read on, and let go once it
//     is deleted and read to its end.
// With DEFER_EVENTS a held file that a turn could not finish stays held, and
// the new file waits for it.
//
// POSITION_FILE uses the same follower without the key: a file found at
// start-up under another name (rotated while the agent was down) is handed
// over, read to its end at the first turn and then let go.
//
// Not handled: lines a writer adds to a renamed file after the turn that moved
// on to the new file (the writer had already written to that one); a copy
// that is compressed or removed before the turn that finds the truncation.
// Single-threaded, like the gather cycle.
#pragma once

#include <cstdio>
#include <string>

#include "CommonConst.h"
#include "FileIdentity.h"

class CColumnLogger;
struct ST_LOGFILE_INFO;

// The value of FOLLOW_ROTATION that turns following on.
constexpr const char* FOLLOW_ROTATION_ON = "1";

class CLogFollower {
 public:
  // `l_bFollow`: FOLLOW_ROTATION is on; otherwise only handed-over files are held.
  explicit CLogFollower(bool l_bFollow) : m_bFollow(l_bFollow) {}
  ~CLogFollower();
  CLogFollower(const CLogFollower&) = delete;
  CLogFollower& operator=(const CLogFollower&) = delete;

  // A turn opened `l_pstrOpenName` on `l_pstFd`, before its offset is
  // decided: reads what is left of a previous file (see above) and points the
  // log at the start of the new one. 1: the turn goes on with `l_pstFd`; -1:
  // it ends here (the previous file is not finished, or the new one is empty).
  int fOnOpen(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, FILE* l_pstFd, const char* l_pstrOpenName);
  // The turn could not open the log's name.
  void fOnOpenFailed(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog);
  // At start-up: entry `l_nIndx` goes on reading `l_strFile` (at the log's
  // offset) until its name means another file. False when it cannot be opened.
  bool fHandOver(int l_nIndx, const std::string& l_strFile);
  // The identity and path of the file entry `l_nIndx` reads; false when none is held.
  bool fHeld(int l_nIndx, ST_FILE_ID* l_pstId, std::string* l_pstrFile) const;

 private:
  struct ST_FOLLOWED {
    int m_nFd = -1;         // the file read, held open between cycles; -1 none
    ST_FILE_ID m_stId;      // its identity (kept after a deleted file was let go)
    bool m_bKnown = false;  // m_stId holds an identity
    std::string m_strFile;  // the path it was opened under
  };
  ST_FOLLOWED* fSlot(const ST_LOGFILE_INFO* l_pstLog);
  // Holds a new descriptor of the file open on `l_nFd`, opened under `l_strFile`.
  void fHold(ST_FOLLOWED& l_stSlot, int l_nFd, const std::string& l_strFile);
  void fLetGo(ST_FOLLOWED& l_stSlot);
  // One turn on the held file from the log's offset. True when no whole line
  // is left after the offset it saved.
  bool fReadHeld(CColumnLogger& l_clLogger, ST_LOGFILE_INFO* l_pstLog, ST_FOLLOWED& l_stSlot);

  bool m_bFollow;
  ST_FOLLOWED m_vstSlots[MAX_WATCHED_LOGS + 1];  // by entry number
};

// The follower of the running agent; null unless FOLLOW_ROTATION or POSITION_FILE is set.
extern CLogFollower* g_pclLogFollower;
