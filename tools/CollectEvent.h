// One event line of an event file, cut into its fields: the parser that the
// collector and `ColumnTool events` share. Pure functions, no I/O.
//
// Layouts (BAR is the bar separator 03 1F 7C; README "Event line layout"):
//   rule event:      INDEX "|" TYPE BAR LEVEL BAR "COLUMN[" C "] " MSG ", ORIGINAL_MSG:" LINE
//                    MSG numeric (TYPE 1): "Value[" NUMBER "] " OP " " NUMBER
//                    MSG text    (TYPE 2): "Value[" COLUMN-TEXT "] " ("==" | "!=") " " TEXT
//   line-rate event: INDEX "|4" BAR LEVEL BAR DATES " log count[" N "] >= [" N "]"
//
// Everything up to "COLUMN[c] " (or up to the date text) is written by the
// agent from numbers, so it is read strictly from the start. What follows
// holds text from the log line, which may hold anything, the separator bytes
// and ", ORIGINAL_MSG:" included. A log line must never be able to make the
// parser read a field other than the one the agent wrote, so:
//  - numeric message: its numbers cannot hold ", ORIGINAL_MSG:", so the first
//    occurrence ends the message;
//  - text message: the column text is cut from the line, so a reading is a
//    place of ", ORIGINAL_MSG:" and of "] == " / "] != " before it at which
//    the column text occurs in the line that follows. The line is parsed only
//    when exactly one reading exists; two or more (a line made to look like
//    an event) make it unparsed;
//  - line-rate event: read from its end, whose form is strict.
// A line that does not parse is never dropped: the caller delivers it whole,
// marked unparsed.
#pragma once

#include <cstddef>
#include <string>

// Event types as the agent writes them in the second field.
constexpr int EVENT_KIND_NUMERIC = 1;
constexpr int EVENT_KIND_TEXT = 2;
constexpr int EVENT_KIND_RATE = 4;

struct ST_COLLECT_EVENT {
  int m_nParsed = 0;           // 1: the fields below hold the line; 0: only m_strRaw does
  int m_nEntry = 0;            // watched log entry nn (INDEX)
  int m_nKind = 0;             // EVENT_KIND_NUMERIC, _TEXT or _RATE
  int m_nLevel = 0;            // fault level
  int m_nColumn = 0;           // column counted from 1; 0 for a line-rate event
  std::string m_strValue;      // numeric: the value as printed; text: the column text; rate: the line count
  std::string m_strOp;         // ">", ">=", "<", "<=", "==" or "!="; rate: ">="
  std::string m_strThreshold;  // numeric and rate: the threshold as printed; text: the rule's text
  std::string m_strLine;       // rule events: the whole log line (without its line end)
  std::string m_strDates;      // rate: the date text of the last line of the second (trailing blank removed)
  bool m_bDated = false;       // rate: the line had date text (an empty date column gives "" with it)
  std::string m_strRaw;        // the event line as read, without its line end
};

// Parses `l_nLen` bytes of one event line (a final 0x0A is taken off; NUL
// bytes are text). Always fills m_strRaw. Returns 1 when the line has one of
// the layouts above (m_nParsed 1), 0 otherwise (m_nParsed 0), -1 for a null
// argument.
int fgParseEventLine(const char* l_pstrLine, size_t l_nLen, ST_COLLECT_EVENT* l_pstEvent);

// Name of an event kind: "numeric", "text", "rate"; "unparsed" for anything else.
const char* fgEventKindName(int l_nKind);
