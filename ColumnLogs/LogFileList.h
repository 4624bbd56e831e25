// CLogFileList: the registry of watched logs. One ST_LOGFILE_INFO per
// LOGnn_ entry of the configuration, holding what the configuration says
// about the log (name, types, delimiter, line patterns, line-rate pair) and
// the reading state the gather cycle keeps for it.
//
// Order: keyed by the entry number with duplicates refused, and every new
// record goes to the end, so records stay in the order of registration (the
// loader registers in ascending entry number).
//
// Ownership: the registry allocates, owns and frees its records; a record
// owns the compiled patterns in its five slots, which are released whenever
// the record is removed or the registry is cleared or destroyed. Pointers
// returned by the getters stay valid until that record is removed.
//
// Threads: main thread only; the cursor belongs to the registry, so one walk
// at a time (the gather cycle's).
#pragma once

#include "OrderedList.h"
#include "PatternSlots.h"

class CStrPattern;

constexpr int LOGFILE_LIST_ORDER = LIST_ORDER_ASCENDING;  // nominal; records always go to the end
constexpr long LOGFILE_LIST_MAX_CNT = 100;                // nominal maximum, reported only
constexpr int LOGFILE_NAME_SIZE = 512;                    // configured name: at most 511 characters
constexpr int LOGFILE_DELIMITOR_SIZE = 32;                // delimiter specification

struct ST_LOGFILE_INFO {
  // Entry number nn of the LOGnn_NAME key family (1 to 19); the key. Written by fAddLogFile.
  int m_nIndx;
  // Configured name (LOGnn_NAME), date tokens still in it. Written by fAddLogFile.
  char m_strLogFile[LOGFILE_NAME_SIZE];
  // Full path of the file being read; empty until the first open. Written by the gather cycle.
  char m_strLogingFile[LOGFILE_NAME_SIZE];
  // Compiled line pattern of each slot; null when the slot is empty or its
  // text did not compile. Owned by the record. Written by fPatternComp.
  CStrPattern* m_vpclStrPattern[PATTERN_SLOT_CNT];
  // Line pattern text of each slot; empty for a slot without pattern. Written by fAddLogPattern.
  char m_vstrLogPattern[PATTERN_SLOT_CNT][PATTERN_TEXT_SIZE];
  // Grade of each slot (shown in traces only); -1 when the slot has none. Written by fAddLogPattern.
  int m_vnFaultGrade[PATTERN_SLOT_CNT];
  // Bytes up to the end of the last complete line read: the next read starts
  // here. 0 for a new record and whenever the resolved file changes. Written
  // by the gather cycle.
  long m_lOffSet;
  // Time of the last look at the log, seconds since the epoch. Written by the gather cycle.
  long m_lLastGatherTime;
  // Modification time (seconds since the epoch) of the file seen at the last
  // positioning. Written by the gather cycle.
  long m_lLogFileModifyTime;
  // Create type (LOGnn_CHECK_TYPE, low 8 bits): 0 = date tokens become "?"
  // wildcards and the newest match is read; other = the current date. Written by fAddLogFile.
  char m_chCreateType;
  // Log type (LOGnn_TYPE): 0 first look starts at the end, 1 every cycle reads
  // from the start, 2 first look starts at the start. Written by fAddLogFile.
  int m_nLogType;
  // 0 until a log of type 0 or 2 has been looked at (or failed to open) once,
  // then 1 for good. Written by the gather cycle.
  int m_nFirstFlag;
  // 1 once the log has had its turn in the current cycle. Written by
  // fInitGatherFlag (0) and the gather cycle (1).
  int m_nGatherFlag;
  // Delimiter specification (LOGnn_DELIMITOR), e.g. ",{~}NULL". Written by fAddLogPattern.
  char m_strDelimitor[LOGFILE_DELIMITOR_SIZE];
  // Fault level of the last pair of LOGnn_SECLOG_LEVEL_CNT. Written by fAddLogPattern.
  int m_nSecLogCntFaultLevel;
  // Lines per second of that pair. Written by fAddLogPattern.
  int m_nSecLogCount;
  ST_LOGFILE_INFO* m_pstNext;  // next record, null at the end
  ST_LOGFILE_INFO* m_pstPrev;  // previous record, null at the head
};

class CLogFileList {
 public:
  // Empty registry: order type 3, nominal maximum 100, duplicates refused.
  CLogFileList();
  // Releases every record with its compiled patterns.
  ~CLogFileList() = default;
  CLogFileList(const CLogFileList&) = delete;
  CLogFileList& operator=(const CLogFileList&) = delete;

  // Registers a watched log at the end of the registry: a new record with the
  // entry number, a copy of the name, the create type and the log type, empty
  // pattern slots with grade -1 and everything else 0 or empty.
  // 1 registered; 0 when the entry number is already registered (nothing
  // changes); -1 when the name is null or longer than 511 characters (it is
  // refused rather than cut, error code -1 and a text naming the reason) or
  // memory is exhausted (error code and text of the list).
  int fAddLogFile(int l_nIndx, char* l_pstrLogFile, char l_chCreateType, int l_nLogType);

  // Stores the line patterns, the delimiter specification and the
  // lines-per-second pair of a registered log. The slots are emptied first and
  // refilled from `l_pstrPattern` (grammar in PatternSlots.h: entries at the
  // tilde separator, "grade{|}pattern" or "pattern", at most five stored).
  // When no pattern could be stored the value is reported as
  // "Log pattern add fail : %s" (stderr with g_nPrint, error text and
  // diagnostic record when the logger exists); that is not a failure.
  // A null pattern value reads as empty; a null or empty delimiter leaves the
  // delimiter empty; a longer delimiter is cut to 31 characters.
  // -1 when the entry number is not registered, 0 when a pattern was longer
  // than 2047 characters (the patterns before it stay), otherwise 1.
  int fAddLogPattern(int l_nIndx, char* l_pstrPattern, int l_nSecLogCntFaultLevel, int l_nSecLogCount,
                     char* l_pstrDelimitor);

  // Removes the watched log with its compiled patterns. 1 removed, else 0.
  int fDelLogFile(int l_nIndx);

  // Empties all five slots of a log: texts cleared, compiled patterns
  // released, grades -1. -1 when the entry number is not registered, else 1.
  int fClearPattern(int l_nIndx);

  // Compiles `l_pstrPattern` into slot `l_nPatternIndex` (0..4) of the record,
  // releasing what the slot held; the slot text is not touched. 1 when it
  // compiled; 0 when it did not (the slot is then null), or when the record
  // or text is null or the slot number is outside 0..4.
  int fPatternComp(ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex, char* l_pstrPattern);

  // Releases the compiled pattern of one slot and sets it null. 1; -1 for a
  // null record or a slot number outside 0..4.
  int fPatternClear(ST_LOGFILE_INFO* l_pstLogFileInfo, int l_nPatternIndex);

  // Sets m_nGatherFlag to 0 in every record; the cursor does not move.
  void fInitGatherFlag();

  // Releases all records with their compiled patterns; returns how many there were.
  int fClearLogFile();

  // The record with this entry number, or null.
  ST_LOGFILE_INFO* fGetNode(int l_nIndx);
  // The first record whose configured name equals the text exactly, or null
  // (also for a null text).
  ST_LOGFILE_INFO* fGetNode(char* l_pstrLogFile);
  // The cursor record, or null.
  ST_LOGFILE_INFO* fGetNode();

  // Entry number of the first record with that configured name, or 0.
  int fGetLogFileIndx(char* l_pstrLogFile);
  // Configured name of that entry (owned by the record), or null.
  char* fGetLogFileName(int l_nIndx);
  // Configured name of the record at position `l_nLogIndex`, counted from 1
  // at the head (owned by the record); null when there is no such position.
  char* fGetLogFile(int l_nLogIndex);
  // Number of records.
  long fGetLogFileCount();

  // Cursor: fMoveFirst / fMoveLast return 1 when the registry is not empty;
  // fMoveNext / fMovePrev return the cursor record and then step (null at the end).
  int fMoveFirst() { return m_clList.fMoveFirst(); }
  int fMoveLast() { return m_clList.fMoveLast(); }
  ST_LOGFILE_INFO* fMoveNext() { return m_clList.fMoveNext(); }
  ST_LOGFILE_INFO* fMovePrev() { return m_clList.fMovePrev(); }

  // Last error code and text (owned by the registry); 0 and empty until a failure.
  int fGetErrorCode() { return m_clList.fGetErrorCode(); }
  char* fGetErrorMsg() { return m_clList.fGetErrorMsg(); }

 private:
  struct Traits {
    static int fKey(const ST_LOGFILE_INFO* l_pstNode) { return l_pstNode->m_nIndx; }
    static void fCopyPayload(ST_LOGFILE_INFO* l_pstDst, const ST_LOGFILE_INFO* l_pstSrc);
    static void fRelease(ST_LOGFILE_INFO* l_pstNode) { fgPatternSlotsRelease(l_pstNode->m_vpclStrPattern); }
    static constexpr int kInsertRule = INSERT_AT_END;
  };

  int fSearchInsertPosition(ST_LOGFILE_INFO* l_pstNode, ST_LOGFILE_INFO** l_ppstNodePosition) {
    return m_clList.fSearchInsertPosition(l_pstNode, l_ppstNodePosition);
  }
  int fAddNode(ST_LOGFILE_INFO* l_pstAddNode) { return m_clList.fAddNode(l_pstAddNode); }
  long fNodeCntInc() { return m_clList.fNodeCntInc(); }
  long fNodeCntDec() { return m_clList.fNodeCntDec(); }
  ST_LOGFILE_INFO* fGetHeadNode() { return m_clList.fGetHeadNode(); }
  ST_LOGFILE_INFO* fGetEndNode() { return m_clList.fGetEndNode(); }
  int fFreeAll() { return m_clList.fFreeAll(); }
  int fDeleteNode(int l_nIndex) { return m_clList.fDeleteNode(l_nIndex); }
  long fGetNodeCnt() { return m_clList.fGetNodeCnt(); }
  long fGetNodeMaxCnt() { return m_clList.fGetNodeMaxCnt(); }

  // Records the "Log pattern add fail" report for a value that stored nothing.
  void fReportNoPattern(const char* l_pstrPattern);

  COrderedList<ST_LOGFILE_INFO, Traits> m_clList;
};
