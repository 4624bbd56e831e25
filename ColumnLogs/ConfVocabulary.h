// The words of the configuration file, in one place: key names, the longest
// value each key takes, the defaults of the logging keys, and the codes a
// rule value carries. The agent's loader and the companion tool's check both
// read them from here, so the two cannot disagree about what a file means.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// ---- logging keys (read by fMakeOmniLog) ----
constexpr const char* KEY_LOG_PATH = "LOG_PATH";
constexpr const char* KEY_LOG_MODE = "LOG_MODE";
constexpr const char* KEY_LOG_VALIDDAY = "LOG_VALIDDAY";
constexpr const char* KEY_PRINT = "PRINT";

// LOG_MODE words and the logger mode each selects; any other word: no log.
struct ST_LOG_MODE_WORD {
  const char* m_pstrWord;
  int m_nMode;
};
constexpr ST_LOG_MODE_WORD LOG_MODE_WORDS[] = {{"DEBUG", 1}, {"NORMAL", 2}, {"ERROR", 3}};
// The logger mode a LOG_MODE value selects; 0 for any other value.
inline int fgLogModeOfWord(const char* l_pstrWord) {
  for (const ST_LOG_MODE_WORD& l_stMode : LOG_MODE_WORDS) {
    if (strcmp(l_pstrWord, l_stMode.m_pstrWord) == 0) return l_stMode.m_nMode;
  }
  return 0;
}
// PRINT value that turns the console trace on.
constexpr const char* PRINT_ON = "ON";
// Retention days of the diagnostic log: a value below 1 means the default,
// one above the maximum is cut to it.
constexpr long VALID_DAY_DEFAULT = 7;
constexpr long VALID_DAY_MAX = 1000;
// The retention days a LOG_VALIDDAY value gives.
inline long fgValidDays(const char* l_pstrValue) {
  const long l_lDays = strtol(l_pstrValue, nullptr, 10);
  if (l_lDays < 1) return VALID_DAY_DEFAULT;
  return l_lDays > VALID_DAY_MAX ? VALID_DAY_MAX : l_lDays;
}

// ---- monitoring keys (read by fLoadConfInfo) ----
constexpr const char* KEY_OUTPUT_PATH = "OUTPUT_PATH";
constexpr const char* KEY_LINE_WAIT_CNT = "LINE_WAIT_CNT";
constexpr size_t OUTPUT_PATH_MAX = 511;   // characters; the field holds 512 bytes
constexpr size_t LINE_WAIT_CNT_MAX = 63;

// Keys of later capabilities. Unset, each leaves the agent as it is without
// it: no path means the feature is off, and the switches default to off.
constexpr const char* KEY_COLLECT_TO = "COLLECT_TO";            // path; default none
constexpr const char* KEY_POSITION_FILE = "POSITION_FILE";      // path; default none
constexpr const char* KEY_FOLLOW_ROTATION = "FOLLOW_ROTATION";  // switch; default off
constexpr const char* KEY_STATUS_FILE = "STATUS_FILE";          // path; default none
constexpr const char* KEY_DEFER_EVENTS = "DEFER_EVENTS";        // switch; default off
constexpr const char* COLLECT_TO_DEFAULT = "syslog:unix:/dev/log";  // the collector's destination without the key
constexpr const char* POSITION_FILE_DEFAULT = nullptr;
constexpr const char* STATUS_FILE_DEFAULT = nullptr;
constexpr bool FOLLOW_ROTATION_DEFAULT = false;
constexpr bool DEFER_EVENTS_DEFAULT = false;

// Every key of the configuration outside the LOGnn_ families.
constexpr const char* GLOBAL_KEYS[] = {KEY_LOG_PATH,    KEY_LOG_MODE,      KEY_LOG_VALIDDAY, KEY_PRINT,
                                       KEY_OUTPUT_PATH, KEY_LINE_WAIT_CNT, KEY_STATUS_FILE, KEY_DEFER_EVENTS,
                                       KEY_COLLECT_TO,  KEY_POSITION_FILE, KEY_FOLLOW_ROTATION};

// The agent takes a configuration path of at most this many characters.
constexpr size_t CONF_PATH_MAX = 255;

// ---- watched-log entries: "LOG%02d_" + suffix, nn from 1 to MAX_WATCHED_LOGS ----
// The nine keys of an entry, in the order the loader fetches them. An entry
// without all nine is skipped.
enum EN_ENTRY_KEY {
  KEY_NAME,
  KEY_TYPE,
  KEY_CHECK_TYPE,
  KEY_SECLOG,
  KEY_DELIMITOR,
  KEY_NUMBER,
  KEY_CHAR,
  KEY_DATE,
  KEY_PATTERN,
  ENTRY_KEY_COUNT
};
constexpr size_t PATTERN_VALUE_MAX = 2047;  // line patterns: the 2048-byte pattern field
struct ST_ENTRY_KEY {
  const char* m_pstrSuffix;
  size_t m_nMaxLen;  // longest value; 0: parsed as a number, no buffer
};
constexpr ST_ENTRY_KEY ENTRY_KEYS[ENTRY_KEY_COUNT] = {
    {"NAME", 511},          {"TYPE", 0},              {"CHECK_TYPE", 0},     {"SECLOG_LEVEL_CNT", 127},
    {"DELIMITOR", 31},      {"NUMBER_PATTERN", 511},  {"CHAR_PATTERN", 511}, {"DATE_PATTERN", 511},
    {"PATTERN", PATTERN_VALUE_MAX},
};
constexpr size_t ENTRY_KEY_SIZE = 64;  // buffer of one entry key name

// Writes the key of entry `l_nIndx` with `l_pstrSuffix` ("LOG07_NAME").
inline void fgEntryKey(char* l_pstrKey, size_t l_nSize, int l_nIndx, const char* l_pstrSuffix) {
  snprintf(l_pstrKey, l_nSize, "LOG%02d_%s", l_nIndx, l_pstrSuffix);
}

// LOGnn_TYPE: where reading a watched log starts.
constexpr int LOG_TYPE_FROM_END = 0;    // first look at the end, then at the saved offset
constexpr int LOG_TYPE_WHOLE_FILE = 1;  // always from the start
constexpr int LOG_TYPE_FROM_START = 2;  // first look at the start, then at the saved offset
// LOGnn_CHECK_TYPE 0: date tokens of the name become "?" wildcards and the
// newest match is read; any other value: they become the current date.
constexpr int CREATE_TYPE_WILDCARD = 0;

// The value that stands for "nothing" in a rule value, a delimiter or a line pattern.
constexpr const char* VALUE_NONE = "NULL";

// Fields of one entry of each multi-part value (entries divided by the bar
// separator, fields by the tilde separator).
constexpr int SECLOG_FIELDS = 2;  // level, lines per second
constexpr int NUMBER_FIELDS = 6;  // column, level, value, comparison, text before, text after
constexpr int CHAR_FIELDS = 4;    // column, level, text, comparison
constexpr int DATE_FIELDS = 2;    // column, layout
constexpr size_t RULE_TEXT_MAX = 63;  // text before / after a numeric value: a 64-byte field

// ---- codes of the rules ----
// Numeric comparison (the fourth field of a numeric rule): value <op> threshold.
constexpr int NUM_COMPARE_GT = 1;  // >
constexpr int NUM_COMPARE_GE = 2;  // >=
constexpr int NUM_COMPARE_LT = 3;  // <
constexpr int NUM_COMPARE_LE = 4;  // <=
constexpr int NUM_COMPARE_EQ = 5;  // ==
constexpr int NUM_COMPARE_NE = 6;  // !=
// How a numeric rule compares, decided from its threshold text.
constexpr int NUM_DECIDE_INT = 1;    // no "." in the threshold: integers
constexpr int NUM_DECIDE_FLOAT = 2;  // a "." in it: single precision
// Text comparison (the fourth field of a text rule).
constexpr int CHAR_COMPARE_EQUAL = 1;    // event when the column equals the text
constexpr int CHAR_COMPARE_DIFFER = 2;   // event when it differs
constexpr int CHAR_COMPARE_PATTERN = 3;  // event when the text, compiled as a pattern, matches

// ---- event line types (second field of an event line) ----
constexpr int EVENT_TYPE_NUMBER = 1;
constexpr int EVENT_TYPE_CHAR = 2;
constexpr int EVENT_TYPE_LINE_RATE = 4;
