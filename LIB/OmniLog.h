// The process's own diagnostic logger: daily files under a path prefix,
// grades and modes, size rotation, retention, compression of finished files,
// an optional writer thread, and the module log-mode masks.
//
// Ownership: a COmniLog owns its two heap strings, its queue and the messages
// still queued in it. The process logger is reached through g_pclOmniLog.
//
// Threads: a synchronous logger is used from one thread at a time unless
// fSetThreadChk(1) serialises whole fLogWrite calls with the process-wide
// l_gstLogMutexLock (not recursive: code that holds it must not log). In
// threaded mode callers only queue; the writer thread alone touches the file.
#pragma once

#include <ctime>
#include <atomic>

#include "MessageQWriteLog.h"
#include "MessageQueue.h"

// 1: every formatted record is also printed to standard error.
extern int g_nPrint;
class COmniLog;
// The process logger; null means no diagnostic logging at all.
extern COmniLog* g_pclOmniLog;

// Module log-mode masks set by COmniLog::fSetLogModeBit; -1 means everything.
extern int g_nLogModERROR;     // module bits logging at ERROR level
extern int g_nLogModNORMAL;    // module bits logging at NORMAL level
extern int g_nLogModDEBUG;     // module bits logging at DEBUG level
extern int g_nLoggingERROR1;   // all-or-nothing mask for ERROR: -1 or 0
extern int g_nLoggingNORMAL1;  // all-or-nothing mask for NORMAL: -1 or 0
extern int g_nLoggingDEBUG1;   // all-or-nothing mask for DEBUG: -1 or 0
extern int g_nLoggingERROR2;   // component bits logging at ERROR level
extern int g_nLoggingNORMAL2;  // component bits logging at NORMAL level
extern int g_nLoggingDEBUG2;   // component bits logging at DEBUG level

// Grades of diagnostic records: a debug record is written only in log mode
// 1; an information record in every mode.
constexpr int LOG_GRADE_DEBUG = 1;
constexpr int LOG_GRADE_INFO = 3;

// Formats a diagnostic record printf-style (never cut) and hands it to
// g_pclOmniLog->fLogWrite(l_nGrade, l_pstrCode, message). Does nothing while
// g_pclOmniLog is null, and drops the record when memory runs out.
void fgLogRecord(int l_nGrade, const char* l_pstrCode, const char* l_pstrFormat, ...)
    __attribute__((format(printf, 3, 4)));

// The record of a failed system call, in the one shape all of them have:
// "[<l_nErrno>] <text> : <strerror(l_nErrno)>", where <text> is formatted
// printf-style ("%s log file open fail" with the path). The caller passes
// the errno it saved right after the call. Same conditions as fgLogRecord.
void fgLogErrno(int l_nGrade, const char* l_pstrCode, int l_nErrno, const char* l_pstrFormat, ...)
    __attribute__((format(printf, 4, 5)));
// The same with the step that failed in brackets, the shape of the records
// of a watched log's directory and status:
// "[<l_nErrno>] <text>(<l_pstrStep> : <strerror(l_nErrno)>)".
void fgLogErrnoStep(int l_nGrade, const char* l_pstrCode, int l_nErrno, const char* l_pstrStep,
                    const char* l_pstrFormat, ...) __attribute__((format(printf, 5, 6)));

// The writer thread's function; `arg` is the threaded COmniLog. Returns when
// the logger's fStopThread asks it to.
void* fLogThreadQ(void* arg);

// Time source of a logger: seconds since the epoch, like time(nullptr).
using OmniLogClock = time_t (*)();

class COmniLog {
 public:
  // Log modes and the grades of fLogWrite.
  static constexpr int LOG_MODE_DEBUG = 1;
  static constexpr int LOG_MODE_NORMAL = 2;
  static constexpr int LOG_MODE_ERROR = 3;
  static constexpr unsigned long DEFAULT_LOG_SIZE = 10240;  // bytes before rotation
  static constexpr int QUEUE_LIMIT = 500;  // a message is queued while at most this many wait

  // Synchronous logger named `l_pstrMCName` (cut to 15 characters) in mode
  // `l_nLogMode` (1 debug, 2 normal, 3 error; others become 2), keeping files
  // for `l_nValidDay` days (negative becomes 2). Opens no file.
  COmniLog(int l_nLogMode, char* l_pstrMCName, int l_nValidDay);
  // `l_nThread` 1: messages are queued and written by a writer thread started
  // here; any other value: a synchronous logger. If the queue or thread cannot
  // be created, a message goes to standard error and the logger is synchronous.
  COmniLog(int l_nLogMode, char* l_pstrMCName, int l_nValidDay, int l_nThread);
  // Stops the writer thread (fStopThread) and closes the file.
  ~COmniLog();
  COmniLog(const COmniLog&) = delete;
  COmniLog& operator=(const COmniLog&) = delete;

  // New prefix of log file paths (no separator is inserted), used from the
  // next file name on. Returns 1; -1 for a null path or exhausted memory
  // (the old prefix is then kept).
  int fSetLogPath(char* l_pstrLogPath);
  // 1..3 stored and 1 returned; anything else stores 2 and returns 0.
  int fSetLogMode(int l_nLogMode);
  // 0 or more stored and 1 returned; a negative value stores 2 and returns 0.
  int fSetValidDay(int l_nValidDay);
  int fGetLogMode();
  // 1 or more: whole fLogWrite calls of all loggers hold l_gstLogMutexLock;
  // returns 1. Anything else switches it off and returns 0.
  int fSetThreadChk(int l_nThreadChk);

  // Entry point of all callers: writes (or, threaded, queues) one record.
  // Always returns 0. `l_pstrLogMsg` is text, never a format.
  int fLogWrite(int l_nLogGrade, char* l_pstrLogCode, char* l_pstrLogMsg);
  // As above with a source position; the record shows file and line.
  int fLogWrite(int l_nLogGrade, int l_nLine, char* l_pstrFileName, char* l_pstrLogMsg);
  // Synchronous formatter and writer: "[HHMMSS][INFO][code]message\n" (DEBUG
  // for grade 1 in mode 1). Runs the day and size checks first. Returns 1
  // when the record was handed to the file, else 0.
  int fWrite(int l_nLogGrade, char* l_pstrLogCode, char* l_pstrLogMsg);
  // "[HHMMSS][INFO][file][line]message\n"; otherwise as above.
  int fWrite(int l_nLogGrade, int l_nLine, char* l_pstrFileName, char* l_pstrLogMsg);
  // The writer's queue; null for a synchronous logger. Owned by the logger.
  Queue<MessageQWriteLog*>* fGetMessageQueue();

  // Day switch: 0 when the date is unchanged; after a switch 1 when the new
  // day's file opened, else 0.
  int fDateChangeChk();
  // 1 when the current file exists and is below the size threshold; else
  // re-creates a missing file or rotates a full one and returns 0 (the
  // record that found it so is not written).
  int fLogSizeChk();
  // Threshold: `l_nSize` MiB for `l_nChk` 1, KiB for 2 (returns 1); a negative
  // size restores 10240 bytes (returns 0); any other unit sets 0 (returns 1),
  // which means no size rotation at all.
  int fSetLogSize(int l_nSize, int l_nChk);
  // 1 or more: compress the finished file at a day change; returns 1. Else 0.
  int fSetLogCompress(int l_nLogCompress);
  // Starts "../../utils/ETC/ShCmd 60 <compressor> <file> &" for the current
  // file when a compressor was found, without waiting for it. A path with
  // characters the shell would interpret is passed in single quotes.
  // Returns 0.
  int fLogCompress();
  // Runs "../../utils/INSTALL/recentlogfile.sh <date>" and takes the first
  // line of "../aproc/shell/recentlogfile.dat" (newline removed) as the
  // current file when it is longer than 8 characters and names a file of the
  // date `l_pstrDayTime`: 1, else -1. Only a date of eight digits is handed
  // to the shell (anything else: -1). The script finds the log directory in
  // the environment variable OMNILOG_LOG_PATH, else in its working directory.
  int fGetRecentLogFile(char* l_pstrDayTime);

  // Reentrant time formatter: mode 1 "YYYYMMDD", 2 "HHMMSS", 3
  // "YYYYMMDD-HHMMSS" of `l_nDayTime` (the clock's time when 0 or less) into
  // `l_pstrDayTime` (at least 16 bytes). Returns the time used, 0 on failure.
  int fGetThreadDayTime(int l_nDayTime, char* l_pstrDayTime, int l_nMode);

  // Parses a module log-mode text into the nine g_nLogMod / g_nLogging masks.
  // Returns -1 for null, otherwise 1 (also after a diagnostic).
  int fSetLogModeBit(char* l_pstrLogMode);

  // Stops the writer thread of a threaded logger, waits until it has ended,
  // deletes the messages still queued (unwritten) and the queue; afterwards
  // the logger writes synchronously. Returns 1 when a thread was stopped,
  // 0 when there was none. Called by the destructor. Not to be called while
  // other threads still log through this logger. The writer notices the
  // request at its next wake-up, so a stop takes up to about 100 ms.
  int fStopThread();
  // Replaces the time source (null restores time()). Used for day changes and
  // the retention cutoff; set it before the first record.
  void fSetClock(OmniLogClock l_pfnClock);

 private:
  int fOpenLogFile();
  int fCloseLogFile();
  int fGetDayTime(int l_nDayTime, char* l_pstrDayTime, int l_nMode);
  int fLogNameChange(int l_nFlag);
  void fOldLogFileCheck(int l_nValidDayTime);

  // Shared by both constructors (steps after the queue and thread).
  void fInit(int l_nLogMode, char* l_pstrMCName, int l_nValidDay);
  int fStartThread();
  // The retention sweep on a 64-bit time (see OmniLogFile.cpp).
  void fOldLogFileSweep(time_t l_tValidDayTime);
  // Current time from the clock.
  time_t fNow() const;
  // Formats `l_tTime` as local time by `l_nMode` (1 date, 2 time of day,
  // 3 both) into `l_pstrOut` (at least 16 bytes). 1 when formatted, else 0.
  static int fFormatTime(time_t l_tTime, char* l_pstrOut, int l_nMode);
  // Formats one record of grade `l_nLogGrade`: "[time][INFO or DEBUG][label]"
  // then "[line]" when `l_pnLine` is not null, the message and a newline;
  // then fWriteRecord. Both fWrite overloads end here.
  int fWriteGraded(int l_nLogGrade, const char* l_pstrLabel, const int* l_pnLine, const char* l_pstrMsg);
  // Appends one formatted record.
  int fWriteRecord(const char* l_pstrRecord);
  // Queues one message for the writer thread (both fLogWrite overloads).
  void fQueueMessage(int l_nLine, const char* l_pstrFileName, const char* l_pstrLogMsg);

  friend void* fLogThreadQ(void* arg);

  Queue<MessageQWriteLog*>* m_pcQueue;  // writer's queue; null when synchronous
  int m_nThreadMode;                     // 1: fLogWrite queues for the writer thread
  char* m_pstrLogFile;                   // current file: prefix + name; null before the first record
  char* m_pstrLogPath;                   // prefix of every file path, default "./"
  char m_strMCName[16];                  // the logger's name, part of every file name
  char m_strCurrentDate[10];             // YYYYMMDD of the open file, "EMPTY" before the first record
  char m_strCompressPath[64];            // compressor found at construction, or empty
  int m_nCompressChk;                    // 1 when a compressor was found
  int m_nValidDay;                       // retention in days
  int m_nLogMode;                        // 1 debug, 2 normal, 3 error
  int m_nFileFd;                         // open log file; 0 means none
  int m_nThreadChk;                      // 1: fLogWrite holds l_gstLogMutexLock
  int m_nLogCnt;                         // number of the current rotated file of the day
  int m_nLogCompress;                    // 1: compress the finished file at a day change
  unsigned long m_ulLogSize;             // rotation threshold in bytes; 0 = never rotate
  int m_nLivInvLogFlag;                  // 0 for "AGENT"/"agent" names: resume the recent file

  OmniLogClock m_pfnClock;               // time source, time() by default
  // The last converted second's text for each mode of fGetDayTime (1 date,
  // 2 time of day, 3 both); m_tTime -1: nothing kept.
  static constexpr int kTimeModes = 3;
  struct ST_TIME_TEXT {
    time_t m_tTime = -1;
    char m_strText[16] = {};
  };
  ST_TIME_TEXT m_vstTimeText[kTimeModes];
  std::atomic<int> m_nStopRequest;       // 1: the writer thread is to end
  std::atomic<int> m_nThreadEnded;       // 1: the writer thread touches nothing any more
};
