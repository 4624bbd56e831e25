// Building agent configuration files for tests, in the readable "{~}" / "{|}"
// notation that Sep() turns into the real separator bytes.
#pragma once

#include <cstdio>
#include <string>

#include "TestSupport.h"

namespace testsupport {

struct WatchEntry {
  int index = 1;
  std::string name;              // LOGnn_NAME
  int type = 2;                  // LOGnn_TYPE: 0 end, 1 whole file, 2 start
  int checkType = 1;             // LOGnn_CHECK_TYPE: 0 wildcard, else dated
  std::string secLog = "NULL";   // LOGnn_SECLOG_LEVEL_CNT
  std::string delimitor = ",{~}NULL";
  std::string number = "NULL";
  std::string text = "NULL";
  std::string date = "NULL";
  std::string pattern = "NULL";  // LOGnn_PATTERN
};

inline std::string EntryLines(const WatchEntry& e) {
  char prefix[16];
  snprintf(prefix, sizeof(prefix), "LOG%02d_", e.index);
  const std::string p = prefix;
  return Sep(p + "NAME=" + e.name + "\n" + p + "TYPE=" + std::to_string(e.type) + "\n" + p +
             "CHECK_TYPE=" + std::to_string(e.checkType) + "\n" + p + "SECLOG_LEVEL_CNT=" + e.secLog + "\n" + p +
             "DELIMITOR=" + e.delimitor + "\n" + p + "NUMBER_PATTERN=" + e.number + "\n" + p +
             "CHAR_PATTERN=" + e.text + "\n" + p + "DATE_PATTERN=" + e.date + "\n" + p + "PATTERN=" + e.pattern +
             "\n");
}

// The logging and output keys: diagnostic log in <dir>/log/, events in <dir>/out/.
inline std::string GlobalLines(const std::string& dir, const std::string& mode = "DEBUG") {
  return "LOG_PATH=" + dir + "/log/\nLOG_MODE=" + mode + "\nLOG_VALIDDAY=7\nOUTPUT_PATH=" + dir +
         "/out/\nLINE_WAIT_CNT=10\n";
}

}  // namespace testsupport
