// Which files of the event directory the collector takes, and in what order.
// A pure function over a listing, so the rules are tested without a clock.
//
// Rules:
//  - "out_YYYYMMDD-hhmmss" regular files are finished: taken oldest first
//    (the name carries the cycle's start time).
//  - "ing_YYYYMMDD-hhmmss" is the file of a cycle that may still be writing
//    it, or one left by a failed hand-off. Only the cycle whose start time
//    the name carries appends to it, and the agent runs one cycle at a time.
//    So it is taken once a later cycle has started (an event file with a
//    later time exists), or once it has not changed for ING_QUIET_SECONDS
//    (no cycle writes events that long apart and then more to the same
//    file; should one, its later events go to a new file of the same name).
//  - Anything else (other names, directories, links, the collector's own
//    temporary file) is left alone and counted; it still counts toward the
//    agent's 200-entry limit.
// Taken files go in time order; of an "out_" and an "ing_" file of the same
// second the "out_" file goes first.
#pragma once

#include <ctime>
#include <string>
#include <vector>

// An "ing_" file unchanged this long is taken without a later file.
constexpr int ING_QUIET_SECONDS = 300;

struct ST_SPOOL_ENTRY {
  std::string m_strName;  // name in the directory
  bool m_bRegular = false;  // a regular file (lstat: not a link)
  time_t m_tModified = 0;   // last change
};

struct ST_SPOOL_PLAN {
  std::vector<std::string> m_vstrTake;  // names to collect, in order
  int m_nForeign = 0;                   // entries left alone
  int m_nWaiting = 0;                   // "ing_" files not taken yet
  time_t m_tRecheck = 0;                // when the first waiting "ing_" file is due (0: none waits)
};

// True for "out_" or "ing_" followed by YYYYMMDD-hhmmss (digits in place).
bool fgIsEventFileName(const std::string& l_strName);

// The plan for a listing taken at `l_tNow`.
ST_SPOOL_PLAN fgPlanSpool(const std::vector<ST_SPOOL_ENTRY>& l_vstEntries, time_t l_tNow);

// Lists `l_strDir` (with a final "/") into *l_pvstEntries; "." and ".." are
// left out. Returns 1, or -1 with errno set when it cannot be listed.
int fgListSpool(const std::string& l_strDir, std::vector<ST_SPOOL_ENTRY>* l_pvstEntries);
