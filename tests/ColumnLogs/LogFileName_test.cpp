#include "LogFileName.h"
#include "TestSupport.h"

// Expanded at 5 March 2024 07:08:09, or in October / December for the month letter.
TEST(LogFileName, ExpandsDateTokens) {
  const std::string fits = std::string(503, 'a') + "[YYYYMMDD]", over = std::string(504, 'a') + "[YYYYMMDD]";
  const struct { std::string name; char createType; int month, result; std::string expected; } cases[] = {
      {"app_[YYYYMMDD].log", 1, 3, LOGNAME_OK, "app_20240305.log"}, {"[YY]", 1, 3, LOGNAME_OK, "24"},
      {"app_[YYYYMMDD].log", 0, 3, LOGNAME_OK, "app_????????.log"},  // wildcard: each digit a '?'
      {"[M]", 1, 10, LOGNAME_OK, "A"}, {"[M]", 1, 12, LOGNAME_OK, "C"}, {"[M]", 0, 12, LOGNAME_OK, "?"},
      {"[MM]", 1, 10, LOGNAME_OK, "10"}, {"[MMM]", 1, 10, LOGNAME_OK, "10A"}, {"[hhmmss]", 0, 3, LOGNAME_OK, "??????"},
      {"[YYYY]-[MM]-[DD]/[hh][mm][ss]", 1, 3, LOGNAME_OK, "2024-03-05/070809"}, {"a[]b", 1, 3, LOGNAME_OK, "ab"},
      {"/var/log/*.log", 1, 3, LOGNAME_OK, "/var/log/*.log"}, {"", 1, 3, LOGNAME_OK, ""},
      {fits, 1, 3, LOGNAME_OK, std::string(503, 'a') + "20240305"}, {over, 1, 3, LOGNAME_TOO_LONG, ""},  // 511, 512
      {"[YYYY-MM-DD]", 1, 3, LOGNAME_BAD_TOKEN, ""}, {"[yyyy]", 1, 3, LOGNAME_BAD_TOKEN, ""},
      {"app_[YYYY.log", 1, 3, LOGNAME_NO_CLOSE, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.name.substr(0, 40) << " type " << int{c.createType} << " month " << c.month);
    const struct tm time = CalendarTime(2024, c.month, 5, 7, 8, 9);
    char out[512] = "";
    EXPECT_EQ(fgExpandLogFileName(c.name.c_str(), c.createType, &time, out, sizeof(out)), c.result);
    EXPECT_EQ(c.result == LOGNAME_OK ? std::string(out) : "", c.expected);
  }
}

TEST(LogFileName, FinestUnit) {
  const struct { const char* name; int unit; } cases[] = {
      {"app.log", 0}, {"", 0}, {"[YY]", 1}, {"[YYYY][M]", 2}, {"[YYYY][MM][DD]", 3}, {"[hh]", 4}, {"[mm]x", 5},
      {"[ss]", 6}, {"[ss][YYYY]", 6}, {"[YYYY", LOGNAME_NO_CLOSE}, {"[Q]", LOGNAME_BAD_TOKEN}};
  for (const auto& c : cases) EXPECT_EQ(fgLogFileNameUnit(c.name), c.unit) << c.name;
}
