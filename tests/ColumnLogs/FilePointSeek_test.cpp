// CColumnLogger::fFilePointSeek: where reading resumes for each log type, on
// the first look and later, when the file has grown, not grown or shrunk.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::TempDir;
using testsupport::WriteFile;

TEST(FilePointSeek, PositionsByLogTypeOffsetAndSize) {
  const struct Case {
    const char* name;
    int logType;
    int firstFlag;
    long offset;
    long size;
    int result;         // 1: something to read
    long position;      // stream position when the result is 1
    long offsetAfter;   // m_lOffSet afterwards
    int firstFlagAfter;
  } kCases[] = {
      {"type 0 first look skips what is there", 0, 0, 0, 1000, -1, 0, 1000, 1},
      {"type 0 first look of an empty file", 0, 0, 0, 0, -1, 0, 0, 1},
      {"type 2 first look reads from the start", 2, 0, 0, 1000, 1, 0, 0, 1},
      {"type 2 first look of an empty file", 2, 0, 0, 0, -1, 0, 0, 1},
      {"type 1 always from the start", 1, 0, 500, 1000, 1, 0, 0, 0},
      {"resume at the offset", 0, 1, 400, 1000, 1, 400, 400, 1},
      {"nothing new", 2, 1, 1000, 1000, -1, 0, 1000, 1},
      {"shrunk below the offset: from the start", 0, 1, 5000, 300, 1, 0, 0, 1},
      {"emptied: nothing to read", 2, 1, 700, 0, -1, 0, 0, 1},
  };
  TempDir dir;
  CColumnLogger logger;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.file("app.log");
    ASSERT_TRUE(WriteFile(path, std::string(static_cast<size_t>(c.size), 'x')));
    ST_LOGFILE_INFO info{};
    snprintf(info.m_strLogingFile, sizeof(info.m_strLogingFile), "%s", path.c_str());
    info.m_nLogType = c.logType;
    info.m_nFirstFlag = c.firstFlag;
    info.m_lOffSet = c.offset;
    FILE* fd = fopen(path.c_str(), "r");
    ASSERT_NE(fd, nullptr);
    EXPECT_EQ(logger.fFilePointSeek(&info, &fd), c.result);
    if (c.result == 1) {
      EXPECT_EQ(ftell(fd), c.position);
    }
    EXPECT_EQ(info.m_lOffSet, c.offsetAfter);
    EXPECT_EQ(info.m_nFirstFlag, c.firstFlagAfter);
    EXPECT_GT(info.m_lLogFileModifyTime, 0);
    fclose(fd);
  }
}

TEST(FilePointSeek, MissingFileFailsAndCountsAsTheFirstLook) {
  TempDir dir;
  CColumnLogger logger;
  ST_LOGFILE_INFO info{};
  snprintf(info.m_strLogingFile, sizeof(info.m_strLogingFile), "%s", dir.file("gone.log").c_str());
  FILE* fd = fopen("/dev/null", "r");
  ASSERT_NE(fd, nullptr);
  EXPECT_EQ(logger.fFilePointSeek(&info, &fd), -1);
  EXPECT_EQ(info.m_nFirstFlag, 1);
  fclose(fd);
}

}  // namespace
