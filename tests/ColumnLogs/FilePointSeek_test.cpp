// Where reading resumes for each log type, on the first look and later, as the file grew, shrank or went.

#include "ColumnLogger.h"
#include "TestSupport.h"

TEST(FilePointSeek, PositionsByLogTypeOffsetAndSize) {
  // size -1: the file is gone; result 1: something to read, at `pos`.
  const struct { const char* name; int logType, firstFlag; long offset, size; int result; long pos, after; } cases[] = {
      {"type 0 first look skips what is there", 0, 0, 0, 1000, -1, 0, 1000},
      {"type 2 first look reads from the start", 2, 0, 0, 1000, 1, 0, 0},
      {"type 2 first look of an empty file", 2, 0, 0, 0, -1, 0, 0}, {"nothing new", 2, 1, 1000, 1000, -1, 0, 1000},
      {"type 1 always from the start", 1, 0, 500, 1000, 1, 0, 0}, {"resume at the offset", 0, 1, 400, 1000, 1, 400, 400},
      {"type 3 from the start, never past its first look", 3, 0, 500, 1000, 1, 0, 500},
      {"shrunk below the offset: from the start", 0, 1, 5000, 300, 1, 0, 0},
      {"emptied: nothing to read", 2, 1, 700, 0, -1, 0, 0},
      {"gone: fails and counts as the first look", 2, 0, 0, -1, -1, 0, 0},
  };
  TempDir dir;
  CColumnLogger logger;
  const std::string path = dir.file("app.log");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(WriteFile(path, std::string(c.size < 0 ? 0 : static_cast<size_t>(c.size), 'x')));
    FILE* fd = fopen(path.c_str(), "r");
    ASSERT_NE(fd, nullptr);
    ASSERT_TRUE(c.size >= 0 || unlink(path.c_str()) == 0);
    ST_LOGFILE_INFO info{};
    snprintf(info.m_strLogingFile, sizeof(info.m_strLogingFile), "%s", path.c_str());
    info.m_nLogType = c.logType, info.m_nFirstFlag = c.firstFlag, info.m_lOffSet = c.offset;
    EXPECT_EQ(logger.fFilePointSeek(&info, &fd), c.result);
    EXPECT_EQ(c.result == 1 ? ftell(fd) : 0, c.pos);
    EXPECT_EQ(info.m_lOffSet, c.after);
    EXPECT_EQ(info.m_nFirstFlag, c.logType == 0 || c.logType == 2 ? 1 : 0);
    EXPECT_EQ(info.m_lLogFileModifyTime > 0, c.size >= 0);
    fclose(fd);
  }
}
