// CColumnLogger: the one gatherer object of the agent. It owns the
// configuration store and the four registries for the life of the process,
// loads the monitoring configuration once, and runs the gather cycles that
// read the watched logs, evaluate their column rules and write event files.
//
// Threads: everything runs on the main thread; nothing here locks.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <ctime>
#include <utility>
#include <vector>

#include "CharPatternList.h"
#include "CommonConst.h"
#include "ConfManager.h"
#include "CycleBuffers.h"
#include "DatePatternList.h"
#include "LogFileList.h"
#include "NumPatternList.h"

class CColumnLogger {
 public:
  // Creates the four registries, then sets the scalar defaults; clears the
  // process-wide m_nNumFaFoundFlag.
  CColumnLogger();
  // Destroys the registries and the configuration store.
  ~CColumnLogger();
  CColumnLogger(const CColumnLogger&) = delete;
  CColumnLogger& operator=(const CColumnLogger&) = delete;

  // ---- start-up ----
  // (Re)creates the configuration store for `path` and reads the whole file
  // under its lock. 1 on success; 0 leaves m_pclConfManager null.
  int fSetConfManager(char* path);

  // ---- monitoring configuration ----
  // Reads OUTPUT_PATH, LINE_WAIT_CNT and the LOG01_ .. LOG19_ entries into the
  // registries. 0 when there is no store, or when one of the two global keys
  // is missing or too long (reported on stderr and as a record); otherwise 1.
  int fLoadConfInfo();
  // Parses and registers one entry; works on (and may write NULs into) the
  // caller's copies. The entry is taken whole or refused whole: when any
  // registration fails (memory exhausted), the watched log and every rule
  // registered for it are removed again. 0 on success, -1 when the entry is
  // refused, or the negative result of fPatternCheck. The eight arguments
  // between the pattern value and the thresholds have no effect.
  int fAddLogInfo(int l_nIndx, char* l_pstrLogFileName, char l_chCreateType, int l_nLogType,
                  char* l_pstrLogFaultPattern, char* l_pstrStartPattern, char* l_pstrEndPattern,
                  int l_nAllPatternCheck, int l_nSkipTime, char* l_pstrSkipPattern, char* l_pstrExec,
                  char* l_pstrSaveFormat, char* l_pstrSaveFile, char* l_pstrSecLogLevelCnt,
                  char* l_pstrDelimitor, char* l_pstrNumPattern, char* l_pstrCharPattern,
                  char* l_pstrDatePattern);
  // -1 when the line pattern value is null or longer than 2047 characters,
  // otherwise 0; leaves the 2048-byte message buffer empty.
  int fPatternCheck(char* l_pstrPattern, char* l_pstrMsg);

  // ---- log file resolution and opening ----
  // Appends the expansion of `l_pstrLogFile` (date tokens in brackets become
  // the current local date, or "?" wildcards for create type 0) to the
  // 512-byte `l_pstrOutName`. 1 on success, -1 for an invalid name or one
  // whose expansion does not fit.
  int fLogFileNameConvert(char* l_pstrLogFile, char l_chCreateType, char* l_pstrOutName);
  // Finest date unit a name uses: 0 none, 1 year .. 6 second; -1 invalid.
  int fLogFileNameCheck(char* l_pstrLogFile);
  // Opens the newest file matching the wildcard path in the 512-byte buffer
  // and replaces the buffer by the chosen path. 1 with *l_ppstFd set, else -1.
  int fLogFileOpen(char* l_pstrLogFile, FILE** l_ppstFd);
  // Positions the open stream of a watched log by its log type and saved
  // offset. 1 when there is something new to read, else -1.
  int fFilePointSeek(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE** l_ppstFd);

  // ---- gather cycle ----
  // One gather cycle over every watched log. Always 1.
  int fLogGather();
  // Tests `l_pstrString` against compiled line pattern slot `l_nPatternIndex`:
  // -1 when the record or slot is null, 0 when the text is null or no match, 1 on a match.
  int fPattComp(ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex, char* l_pstrString);
  // Hooks with fixed results, kept for the entry format's unused fields.
  int fStartPTCK(ST_LOGFILE_INFO* l_pstLogFileInfo, char* l_pstrString);
  int fEndPTCK(ST_LOGFILE_INFO* l_pstLogFileInfo, char* l_pstrString);
  int fVarSetLog(ST_LOGFILE_INFO* l_pstLogFileInfo);
  int fSkipSetLog(ST_LOGFILE_INFO* l_pstLogFileInfo);
  int fSearchDLogMsg(ST_LOGFILE_INFO* l_pstLogFileInfo, char* l_pstrString);
  char* fSearchVarValue(char* l_pstrString, ST_LOGFILE_INFO* l_pstLogFileInfo);

  // ---- column rule evaluation (on the current line in l_pstrLineBuf) ----
  // Cuts the current line into columns and applies every rule of watched
  // log `l_nIndx`; then runs the lines-per-second check. Returns 1.
  int fColumnIndexFind(int l_nIndx, int l_nSecLogCntFaultLevel, int l_nSecLogCount);
  // -1 when the value text holds a letter, otherwise 1 (fired or not).
  int fColumnFaultSearchNum(ST_NUM_PATTERN_LIST* l_pstNumPatternList, char* l_pstrColumnP);
  int fColumnFaultSearchChar(ST_CHAR_PATTERN_LIST* l_pstCharPatternList, char* l_pstrColumnP);
  int fColumnFaultSearchDate(ST_DATE_PATTERN_LIST* l_pstDatePatternList, char* l_pstrColumnP);
  // Sets m_nNewTime from the two characters under the first "ss" of the date layouts.
  int fConvertDateToInt();
  // -1 when the rule or slot is null, 0 when the text is null or no match, 1 on a match.
  int fPattCompforChar(ST_CHAR_PATTERN_LIST* l_pstCharPatternList, int l_nPatternIndex, char* l_pstrString);

  // ---- event output ----
  // Append one rule event (type 1 numeric, 2 text) to the cycle's event
  // file. 1 written, -1 when the file cannot be opened (counters advance anyway).
  int fMakeOutFile(ST_NUM_PATTERN_LIST* l_pstNumPatternList, int l_nType, char* l_pstrValueMsg);
  int fMakeOutFile(ST_CHAR_PATTERN_LIST* l_pstCharPatternList, int l_nType, char* l_pstrValueMsg);
  // Appends a complete, preformatted event line. 1 or -1 as above.
  int fMakeOutFile(char* l_pstrValueMsg);
  // Entries in the output directory ("." and ".." not counted), -1 when it
  // cannot be listed.
  int fCheckLimitFile();

  // ---- companion tool support ----
  // Not used by the agent: lets the companion tool run this object's own line
  // filter and rule evaluation over a file (ColumnLoggerReplay.cpp).
  // One turn of watched log `l_pstLogFileInfo` over the open stream `l_pstFd`,
  // as a gather cycle gives it but without the read throttle: the log's
  // delimiters are set up, every complete line from the stream's position to
  // its end is offered, as read from `l_pstrOpenName`, to the log's group (the
  // log and the later records with the same name, create type and log type
  // whose m_nGatherFlag is 0), each member through its line filter and the
  // column evaluation, and the group is then marked as served with the offset
  // after the last complete line. The per-log ceiling of the cycle applies
  // unless `l_nNoLimit` is 1. Events go to m_strOutPutFileName; the cycle
  // buffers are set up for the turn and released at its end. An unfinished
  // last line is not offered. Returns the number of complete lines read, or
  // -1 when memory is exhausted (the turn then stops at that line).
  long fReplayTurn(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE* l_pstFd, char* l_pstrOpenName, int l_nNoLimit);

  // Fields, in their fixed order.
  CConfManager* m_pclConfManager;           // configuration store; owned; null until fSetConfManager succeeds
  CLogFileList* m_pclLogFileList;           // watched logs; owned
  CNumPatternList* m_pclNumPatternList;     // numeric column rules; owned
  CCharPatternList* m_pclCharPatternList;   // text column rules; owned
  CDatePatternList* m_pclDatePatternList;   // date column rules; owned
  time_t m_tRctGtrTime;                     // end time of the last completed gather cycle
  time_t m_nInterval;                       // unused
  int m_nSeqID;                             // 0 at the start of every cycle; not read
  int m_nOldTime;                           // time key (seconds value) of the previous evaluated line
  int m_nNewTime;                           // time key of the current line
  int m_nSameTimeCnt;                       // evaluated lines that carried m_nOldTime
  int m_nFaultSendIncrease;                 // events written for the current watched log this cycle
  int m_nFaultSendLimit;                    // lines are evaluated while m_nFaultSendIncrease <= this (100)
  int m_nFaultFoundFlag;                    // 1 once an event was written this cycle: hand the file off
  int m_nLineWaitTime;                      // LINE_WAIT_CNT; stored only
  int m_nTokFlag;                           // 1: one column delimiter; 2: two
  long m_lOriginalBufSize;                  // size in bytes of m_pstrOriginalBuf
  char m_vstrSplit[2][4];                   // [0] tilde separator 03 1F 7E, [1] bar separator 03 1F 7C
  char m_strOutPutPath[512];                // OUTPUT_PATH, a plain prefix ending with "/"
  char m_strOutPutFileName[512];            // this cycle's "ing_" event file
  char m_strSystem[512];                    // this cycle's close-out command
  char m_strLogDate[256];                   // date columns of the current line, each + one blank
  char m_strPatternLogDate[256];            // their layouts, each + one blank
  char* m_pstrOriginalBuf;                  // column buffer of the current cycle; owned; null between cycles

 private:
  // Registration steps of fAddLogInfo, one per rule registry: each
  // registers every rule of its (already checked) value for entry
  // `l_nIndx`, writing NULs into it. 1 when all were registered or the value
  // is "NULL"; -1 (after reporting the key) at the first rule that could not
  // be stored, leaving the rules before it for the caller to remove.
  int fRegisterNumRules(int l_nIndx, char* l_pstrValue);
  int fRegisterCharRules(int l_nIndx, char* l_pstrValue);
  int fRegisterDateRules(int l_nIndx, char* l_pstrValue);

  // FOLLOW_ROTATION reads a held file with a turn of its own.
  friend class CLogFollower;
  // Pieces of one watched log's turn in a gather cycle.
  // One turn on a stream positioned where reading resumes: reads to its end
  // (or where deferral stops it), evaluates, saves the offset of the log and
  // of the entries that share its file, and closes the stream.
  void fTurnOnStream(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE* l_pstFd, char* l_pstrOpenName);
  int fOpenForTurn(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE** l_ppstFd, char* l_pstrOpenName);
  void fSetDelimitors(ST_LOGFILE_INFO* l_pstLogFileInfo);
  void fReadTurn(ST_LOGFILE_INFO* l_pstLogFileInfo, FILE* l_pstFd, char* l_pstrOpenName, long* l_plPieces,
                 long* l_plUnfinished);
  void fOfferLine(ST_LOGFILE_INFO* l_pstLogFileInfo, char* l_pstrOpenName);
  int fLineFilter(ST_LOGFILE_INFO* l_pstMember, char* l_pstrOpenName);
  void fSaveGroupOffset(ST_LOGFILE_INFO* l_pstLogFileInfo, long l_lOffSet);
  // evaluation and output helpers
  // End of a line: feeds the time key to the lines-per-second count and
  // writes at most one line-rate event for watched log `l_nIndx`.
  void fLineRateCheck(int l_nIndx);
  // Formats a rule event line in full and appends it. 1 or -1.
  int fAppendRuleEvent(int l_nIndex, int l_nType, int l_nFaultLevel, int l_nColumnNum, const char* l_pstrValueMsg);
  // Appends one event line of `l_nLen` bytes to the cycle's event file: held
  // in the event buffer while a gather cycle runs, written at once outside
  // one. 1 written or held, -1 when the file cannot be opened or the write
  // fails.
  int fAppendEvent(const char* l_pstrLine, size_t l_nLen);
  // One open/write/close of `l_nLen` bytes on the cycle's event file.
  int fWriteEventFile(const char* l_pstrText, size_t l_nLen);
  // Writes the held events to the event file and empties the buffer. 1, or
  // -1 (after a record) when they could not be written.
  int fFlushEvents();
  // True (after a record) when the "out_" name of this cycle's event file
  // is still taken by an earlier cycle's file: the cycle must not run.
  bool fHandOffTaken();
  // The "out_" name of this cycle's event file; false when it has no "ing_".
  bool fHandOffName(char* l_pstrOutName, size_t l_nSize) const;
  // Renames the event file to its "out_" name (the close-out of the cycle).
  // An empty event file is removed instead, and one that may end in a part
  // of an event line (a short write that could not be cut back) stays.
  void fHandOff();

  // DEFER_EVENTS (DeferEvents.h), in ColumnLoggerDefer.cpp. At the start of
  // a turn reading from offset `l_lStart`:
  void fDeferTurnStart(int l_nIndx, long l_lStart, int l_nFd);
  // After the line ending at offset `l_lLineEnd` was offered: true when the
  // turn must stop, with `*l_plKeep` the offset the next turn starts from.
  bool fDeferLineDone(int l_nIndx, long l_lLineEnd, long* l_plKeep);
  // At the end of the file (`l_lEnd` the offset the turn would save): the
  // offset to save instead when events could not be written.
  long fDeferTurnEnd(int l_nIndx, long l_lEnd);
  // After a failed write of the event buffer: cuts the file back to the end
  // of the last log line whose events all stayed, and moves the safe offset there.
  void fDeferCutBack();
  // A turn of entry `l_nIndx` left the lines after offset `l_lFrom` for a
  // later cycle: those up to the file's size now count as deferred lines in
  // the status file when they are evaluated.
  void fDeferNoteRest(int l_nIndx, long l_lFrom);
  int m_nDeferFd = -1;                // the file of the running turn
  std::pair<long, long> m_vstDeferredSpan[MAX_WATCHED_LOGS + 1] = {};  // by entry: lines left, (from, to]
  long m_lDeferSafe = 0;              // offset up to which every line's events are written
  bool m_bDeferWriteFailed = false;   // an event write of this turn failed
  // Log line ends in the event buffer: (bytes held after the line, offset of its end).
  std::vector<std::pair<size_t, long>> m_vDeferMarks;
  bool m_bEventFileTorn = false;      // the event file may end in a part of a line
  size_t m_nLastWriteKept = 0;        // bytes of the last fWriteEventFile that stayed in the file
  off_t m_lLastWriteStart = -1;       // size of the event file before that write (-1 unknown)

  // Events of the running gather cycle wait in this buffer and reach the
  // event file in one write, before the hand-off or when the buffer is full,
  // instead of an open, a write and a close each. Nothing but the hand-off
  // reads the file, so the "out_" file is the same either way.
  static constexpr size_t EVENT_BUF_SIZE = 32768;

  // The rules of one watched log in registry order, gathered at its first
  // evaluated line of a turn, so that each column looks at that log's rules
  // only instead of walking every rule of every log. The result is the
  // walk's: a pass skips other logs' rules without any effect. Rules do not
  // change during a turn; plans are dropped when it ends.
  struct ST_RULE_PLAN {
    int m_nIndx = 0;
    uint64_t m_ulColumns = 0;     // bit c - 1 set: a rule for column c (1 to 64)
    bool m_bFarColumns = false;   // a rule for a column outside 1 to 64
    std::unique_ptr<ST_NUM_PATTERN_LIST*[]> m_ppstNum;
    std::unique_ptr<ST_CHAR_PATTERN_LIST*[]> m_ppstChar;
    std::unique_ptr<ST_DATE_PATTERN_LIST*[]> m_ppstDate;
    int m_nNum = 0;
    int m_nChar = 0;
    int m_nDate = 0;
  };
  // A watched log found with nothing new: the status of its file then. While
  // a plain (not wildcard) name still shows exactly this status, with the
  // log's own state unchanged, the next turn would open the file, find
  // nothing new and close it again; one status query decides that instead.
  struct ST_QUIET_LOG {
    const ST_LOGFILE_INFO* m_pstLog = nullptr;  // null: nothing noted
    dev_t m_stDev = 0;
    ino_t m_stIno = 0;
    off_t m_lSize = -1;
    struct timespec m_stMtime = {};
    struct timespec m_stCtime = {};  // a change of owner or mode changes it
  };
  ST_QUIET_LOG m_vstQuietLogs[MAX_WATCHED_LOGS + 1];  // by entry number
  // Notes (or, with a null status, forgets) the quiet status of a log.
  void fNoteQuietLog(const ST_LOGFILE_INFO* l_pstLogFileInfo, const struct stat* l_pstStat);
  // True when the log's turn can be skipped on the status of `l_pstrOpenName` alone.
  bool fStillQuiet(ST_LOGFILE_INFO* l_pstLogFileInfo, const char* l_pstrOpenName);

  // Logs of one group with a plan; further members of a larger group walk.
  static constexpr int RULE_PLAN_SLOTS = 8;
  ST_RULE_PLAN m_vstRulePlans[RULE_PLAN_SLOTS];
  int m_nRulePlans = 0;        // slots in use
  bool m_bRulePlans = false;   // true during a turn: evaluation uses plans
  // Starts (true) or ends (false) a turn's use of plans; both drop the plans.
  void fUseRulePlans(bool l_bUse);
  // The plan of watched log `l_nIndx`, made on first use; null when no slot
  // is left or memory is short (the evaluation then walks the registries).
  const ST_RULE_PLAN* fRulePlan(int l_nIndx);

  // Builds m_strOutPutFileName and m_strSystem from the cycle's start time
  // when a gather cycle needs them and has not built them yet.
  void fMakeCycleNames();

  // The line accumulator and the column buffer of a cycle or replay turn.
  CCycleBuffers m_clCycleBuffers{m_pstrOriginalBuf, m_lOriginalBufSize};

  std::unique_ptr<char[]> m_pstrEventBuf;  // allocated at the first held event
  size_t m_nEventBufLen = 0;               // bytes held
  bool m_bHoldEvents = false;              // true while a gather cycle runs
  // The cycle's names are built from this time at their first use (an
  // event, the hand-off, a waiting "out_" file to look for): most cycles
  // write nothing and need no local time conversion or formatting.
  time_t m_tCycleStart = 0;
  bool m_bNamesPending = false;
};

// Creates or replaces g_pclOmniLog from LOG_PATH, LOG_VALIDDAY and LOG_MODE
// and sets g_nPrint from PRINT. 0 when the store is null or a logging key is
// missing ("LOG_VALIDDAY is NULL\n" / "LOG_MODE is NULL\n" on stderr), else 1.
int fMakeOmniLog(CConfManager* l_pclConfManager);

// Process-wide state of the gatherer (one set for the whole process).
extern char* l_pstrLineBuf;            // line accumulator; the line text starts after 28 zero bytes
extern char m_chDilimitor1;            // first column delimiter of the log being read
extern char m_chDilimitor2;            // second column delimiter (mode 2)
extern int m_nCntFaultArray[5];        // lines-per-second threshold per fault level, -1 none
extern int m_nNumFaFoundFlag;          // 1 once a numeric rule fired in the current run
extern char m_strOldLogDate[256];      // date text of the previous evaluated line

// The current line text inside the accumulator (null between cycles).
inline char* fgCurrentLine() { return l_pstrLineBuf != nullptr ? l_pstrLineBuf + 28 : nullptr; }
