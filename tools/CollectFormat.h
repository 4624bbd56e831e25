// What the collector sends for one event: a JSON object (one line) or an
// RFC 5424 syslog message. Pure functions, no I/O.
//
// Log lines may hold any byte. Neither output can be broken or given an extra
// field by one:
//  - JSON: '"' and '\' are escaped, control bytes become \n, \t, ... or
//    \u00XX, and a byte that is not part of valid UTF-8 becomes \uFFFD; the
//    object then also carries "raw_base64", the exact event line in Base64,
//    so nothing is lost.
//  - syslog: the fields are PARAM-VALUEs of the structured data element
//    columnlogs@32473, where '"', '\' and ']' get a backslash (RFC 5424
//    6.3.3); in PARAM-VALUEs and in MSG a control byte, DEL or a byte that is
//    not part of valid UTF-8 is written as the four characters \xNN, and in
//    MSG a backslash is doubled, so the text can be turned back into the
//    bytes and one message stays one line.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>

#include "CollectEvent.h"

// Where and when an event was produced.
struct ST_COLLECT_ORIGIN {
  std::string m_strHost;  // this host's name
  std::string m_strFile;  // the event file's name, without the directory (out_YYYYMMDD-hhmmss)
  time_t m_tTime = 0;     // the cycle's start time (from the file name), local time zone
  std::string m_strTime;  // m_tTime as fgTimeRfc3339 writes it (formatted once per file); empty: formatted per event
  int m_nPid = 0;         // the collector's process id (syslog PROCID)
};

// The SD-ID of the fields: RFC 5612's example enterprise number.
constexpr char COLLECT_SD_ID[] = "columnlogs@32473";
constexpr char COLLECT_APP_NAME[] = "columnlogs";
// Syslog facility of every message: user-level messages (RFC 5424 table 1).
constexpr int COLLECT_FACILITY = 1;

// Syslog severity of an event: fault level 0 notice (5), 1 warning (4), 2 error
// (3), 3 critical (2), 4 and above alert (1), below 0 notice; an unparsed line
// warning (4). Emergency (0) is left to the system itself.
int fgSyslogSeverity(const ST_COLLECT_EVENT& l_stEvent);

// `l_tTime` as RFC 3339 local time with its offset: "2024-03-15T10:11:12+01:00".
std::string fgTimeRfc3339(time_t l_tTime);

// Time encoded in an event file name "out_YYYYMMDD-hhmmss" or "ing_...", as
// local time. Returns 1 and sets *l_ptTime, or 0 when the name has another form.
int fgEventFileTime(const std::string& l_strName, time_t* l_ptTime);

// One JSON object for the event, ending with "\n".
std::string fgFormatJsonEvent(const ST_COLLECT_EVENT& l_stEvent, const ST_COLLECT_ORIGIN& l_stOrigin);

// One RFC 5424 message (without any transport framing) of at most
// `l_nMaxLen` bytes: when it would be longer, the log line (or, unparsed, the
// message) is cut at a character boundary and truncated="1" is added.
std::string fgFormatSyslogEvent(const ST_COLLECT_EVENT& l_stEvent, const ST_COLLECT_ORIGIN& l_stOrigin,
                                size_t l_nMaxLen);

// The JSON escape above: the quoted string; *l_pbReplaced (may be null) is
// set when bytes that were not UTF-8 were replaced.
std::string fgJsonText(const std::string& l_strText, bool* l_pbReplaced);
std::string fgBase64(const std::string& l_strBytes);
