// The gather cycle reads a watched log in pieces of at most 255 characters,
// each ending at a line end or earlier, and joins them into lines. Here the
// lines are long and short around every piece boundary and the log spans
// several of the reader's chunks, so pieces and lines also straddle chunk
// boundaries: every line must be evaluated whole, once, the pieces counted
// as fgets would cut them, and the offset must end at the last line end.
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "TestSupport.h"

namespace {

using testsupport::AgentProcess;
using testsupport::ListDir;
using testsupport::PollFor;
using testsupport::ReadFile;
using testsupport::Readable;
using testsupport::TempDir;
using testsupport::WatchEntry;
using testsupport::WriteFile;

constexpr size_t kPiece = 255;

std::string AllFiles(const std::string& dir, const std::string& prefix = "") {
  std::string all;
  for (const auto& name : ListDir(dir))
    if (name.rfind(prefix, 0) == 0) all += ReadFile(dir + "/" + name);
  return all;
}

TEST(GatherPieces, LinesAcrossPieceAndChunkBoundariesAreReadWhole) {
  TempDir dir;
  for (const char* sub : {"out", "log", "logs"}) mkdir(dir.file(sub).c_str(), 0755);

  // Line lengths (without the line end) around the piece size and its
  // multiples; every 7th line is a hit for the rule.
  const size_t kLengths[] = {5, 80, 253, 254, 255, 256, 300, 509, 510, 511, 700, 0, 1};
  std::string log;
  std::string expected;
  long pieces = 0;
  int hits = 0;
  for (int i = 0; i < 260; ++i) {
    const size_t len = kLengths[i % 13];
    const bool hit = len >= 5 && i % 7 == 0;
    std::string line = len < 5 ? std::string(len, 'z')
                               : (hit ? "HIT," : "abc,") + std::string(len - 4, static_cast<char>('a' + i % 26));
    if (hit) {
      expected += "1|2{|}1{|}COLUMN[1] Value[HIT] == HIT, ORIGINAL_MSG:" + line + "\n";
      ++hits;
    }
    if (i == 100) line[3] = '\0';  // a NUL byte inside a line still counts as a byte
    log += line + "\n";
    pieces += static_cast<long>((line.size() + 1 + kPiece - 1) / kPiece);
  }
  const size_t complete = log.size();
  log += "HIT,unfinished";  // no line end: read as a piece, not evaluated
  pieces += 1;
  ASSERT_GT(log.size(), 3u * 16384u);
  ASSERT_LT(pieces, 800);  // below the read throttle's pause
  ASSERT_LT(hits, 100);    // below the event ceiling of a turn
  ASSERT_TRUE(WriteFile(dir.file("logs/app.log"), log));

  WatchEntry e;
  e.name = dir.file("logs/app.log");
  e.type = 2;
  e.text = "1{~}1{~}HIT{~}1";
  ASSERT_TRUE(WriteFile(dir.file("agent.conf"), testsupport::GlobalLines(dir.path(), "NORMAL") + EntryLines(e)));
  AgentProcess agent(dir.path(), {"agent.conf"});

  const std::string counts = "log count = " + std::to_string(pieces) + ", fault count = " + std::to_string(hits);
  ASSERT_TRUE(PollFor([&] { return AllFiles(dir.file("log")).find(counts) != std::string::npos; }, 8000))
      << "expected \"" << counts << "\" in:\n" << AllFiles(dir.file("log"));
  EXPECT_NE(AllFiles(dir.file("log")).find("LOG offset save : " + std::to_string(complete)), std::string::npos);
  ASSERT_TRUE(PollFor([&] { return !AllFiles(dir.file("out"), "out_").empty(); }, 8000));
  EXPECT_EQ(Readable(AllFiles(dir.file("out"), "out_")), expected);
}

}  // namespace
