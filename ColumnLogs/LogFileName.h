// Date tokens in watched-log names: pure functions, no I/O, no clock.
//
// A name may hold bracket groups such as "app_[YYYYMMDD].log"; inside the
// brackets only the tokens YYYY, YY, MM, M (month as one hex digit), DD, hh,
// mm and ss may stand, tried in that order at each position. Text outside
// brackets is copied unchanged; "[]" produces nothing.
#pragma once

#include <cstddef>
#include <ctime>

constexpr int LOGNAME_OK = 1;
constexpr int LOGNAME_NO_CLOSE = -1;   // a "[" without its "]"
constexpr int LOGNAME_BAD_TOKEN = -2;  // other text inside brackets
constexpr int LOGNAME_TOO_LONG = -3;   // the expansion does not fit the buffer

// Expands `l_pstrName` into `l_pstrOut` (size bytes, NUL-terminated): the
// tokens become the values of `l_pstTime` when `l_chCreateType` is not 0,
// and "?" wildcards of the same width when it is 0. Returns LOGNAME_OK or
// one of the negative codes above (the output is then unspecified).
int fgExpandLogFileName(const char* l_pstrName, char l_chCreateType, const struct tm* l_pstTime, char* l_pstrOut,
                        size_t l_nSize);

// The finest date unit a name uses: 0 none, 1 year, 2 month, 3 day, 4 hour,
// 5 minute, 6 second; or LOGNAME_NO_CLOSE / LOGNAME_BAD_TOKEN.
int fgLogFileNameUnit(const char* l_pstrName);
