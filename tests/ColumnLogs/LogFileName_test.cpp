#include "LogFileName.h"

#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

TEST(LogFileName, ExpandsDateTokens) {
  struct Case {
    const char* name;
    char createType;
    struct tm time;
    int result;
    const char* expected;
  };
  const Case cases[] = {
      {"app_[YYYYMMDD].log", 1, testsupport::CalendarTime(2024, 3, 5, 0, 0, 0), LOGNAME_OK, "app_20240305.log"},
      {"app_[YYYYMMDD].log", 0, testsupport::CalendarTime(2024, 3, 5, 0, 0, 0), LOGNAME_OK, "app_????????.log"},
      {"[YY]", 1, testsupport::CalendarTime(2024, 1, 1, 0, 0, 0), LOGNAME_OK, "24"},
      {"[M]", 1, testsupport::CalendarTime(2024, 10, 1, 0, 0, 0), LOGNAME_OK, "A"},
      {"[M]", 1, testsupport::CalendarTime(2024, 12, 1, 0, 0, 0), LOGNAME_OK, "C"},
      {"[M]", 0, testsupport::CalendarTime(2024, 12, 1, 0, 0, 0), LOGNAME_OK, "?"},
      {"[MM]", 1, testsupport::CalendarTime(2024, 10, 1, 0, 0, 0), LOGNAME_OK, "10"},
      {"[MMM]", 1, testsupport::CalendarTime(2024, 10, 1, 0, 0, 0), LOGNAME_OK, "10A"},
      {"[YYYY]-[MM]-[DD]/[hh][mm][ss]", 1, testsupport::CalendarTime(2024, 3, 5, 7, 8, 9), LOGNAME_OK, "2024-03-05/070809"},
      {"[hhmmss]", 0, testsupport::CalendarTime(2024, 3, 5, 7, 8, 9), LOGNAME_OK, "??????"},
      {"a[]b", 1, testsupport::CalendarTime(2024, 3, 5, 7, 8, 9), LOGNAME_OK, "ab"},
      {"/var/log/*.log", 1, testsupport::CalendarTime(2024, 3, 5, 7, 8, 9), LOGNAME_OK, "/var/log/*.log"},
      {"", 1, testsupport::CalendarTime(2024, 3, 5, 7, 8, 9), LOGNAME_OK, ""},
      {"[YYYY-MM-DD]", 1, testsupport::CalendarTime(2024, 3, 5, 0, 0, 0), LOGNAME_BAD_TOKEN, nullptr},
      {"[yyyy]", 1, testsupport::CalendarTime(2024, 3, 5, 0, 0, 0), LOGNAME_BAD_TOKEN, nullptr},
      {"app_[YYYY.log", 1, testsupport::CalendarTime(2024, 3, 5, 0, 0, 0), LOGNAME_NO_CLOSE, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    char out[512];
    EXPECT_EQ(fgExpandLogFileName(c.name, c.createType, &c.time, out, sizeof(out)), c.result);
    if (c.expected != nullptr) {
      EXPECT_STREQ(out, c.expected);
    }
  }
}

TEST(LogFileName, RefusesExpansionsThatDoNotFit) {
  const struct tm t = testsupport::CalendarTime(2024, 3, 5, 0, 0, 0);
  char out[512];
  const std::string fits = std::string(503, 'a') + "[YYYYMMDD]";  // 511 characters expanded
  EXPECT_EQ(fgExpandLogFileName(fits.c_str(), 1, &t, out, sizeof(out)), LOGNAME_OK);
  EXPECT_EQ(std::string(out).size(), 511u);
  const std::string over = std::string(504, 'a') + "[YYYYMMDD]";
  EXPECT_EQ(fgExpandLogFileName(over.c_str(), 1, &t, out, sizeof(out)), LOGNAME_TOO_LONG);
}

TEST(LogFileName, FinestUnit) {
  struct Case {
    const char* name;
    int unit;
  };
  const Case cases[] = {{"app.log", 0},           {"", 0},          {"[YY]", 1},   {"[YYYY][M]", 2},
                        {"[YYYY][MM][DD]", 3},    {"[hh]", 4},      {"[mm]x", 5},  {"[ss]", 6},
                        {"[ss][YYYY]", 6},        {"[YYYY", LOGNAME_NO_CLOSE},     {"[Q]", LOGNAME_BAD_TOKEN}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(fgLogFileNameUnit(c.name), c.unit);
  }
}

}  // namespace
