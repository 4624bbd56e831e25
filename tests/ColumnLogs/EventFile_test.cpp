// The event file as fMakeOutFile leaves it: created with the permission bits
// fopen("a+") gives (0666 less the umask), appended to event by event, no
// descriptor kept between events, and a file that cannot be opened costs
// the event but not the counters.
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "ColumnLogger.h"
#include "TestSupport.h"

namespace {

using testsupport::ReadFile;
using testsupport::TempDir;

TEST(EventFile, CreatedLikeFopenAppendAndAppendedInOrder) {
  TempDir dir;
  CColumnLogger logger;
  snprintf(logger.m_strOutPutFileName, sizeof(logger.m_strOutPutFileName), "%s", dir.file("ing_x").c_str());
  const size_t fds = testsupport::ListDir("/proc/self/fd").size();
  const mode_t old = umask(027);
  char first[] = "1|4 first\n";
  char second[] = "2|4 second\n";
  EXPECT_EQ(logger.fMakeOutFile(first), 1);
  umask(old);
  EXPECT_EQ(logger.fMakeOutFile(second), 1);
  struct stat st {};
  ASSERT_EQ(stat(logger.m_strOutPutFileName, &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(ReadFile(logger.m_strOutPutFileName), "1|4 first\n2|4 second\n");
  EXPECT_EQ(logger.m_nFaultSendIncrease, 2);
  EXPECT_EQ(logger.m_nFaultFoundFlag, 1);
  // No descriptor is left open between events.
  EXPECT_EQ(testsupport::ListDir("/proc/self/fd").size(), fds);
}

TEST(EventFile, UnopenableFileDropsTheEventButCountsIt) {
  TempDir dir;
  CColumnLogger logger;
  snprintf(logger.m_strOutPutFileName, sizeof(logger.m_strOutPutFileName), "%s",
           dir.file("missing/ing_x").c_str());
  char line[] = "1|4 lost\n";
  EXPECT_EQ(logger.fMakeOutFile(line), -1);
  EXPECT_EQ(logger.m_nFaultSendIncrease, 1);
  EXPECT_EQ(logger.m_nFaultFoundFlag, 1);
}

}  // namespace
