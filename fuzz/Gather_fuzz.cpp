// One watched log through whole gather cycles: fuzzed bytes (NUL bytes, long
// lines, no final line end) are written to the log in two parts with a
// gather cycle after each, so that lines are split across reads and across
// cycles. The input is text up to the fourth line end, with "{~}" and "{|}"
// standing for the separators:
//   1 LOGnn_PATTERN value   2 LOGnn_DELIMITOR value   3 LOGnn_CHAR_PATTERN value
//   then the log's bytes, as they are.
// After each cycle the saved offset must be the end of the last complete
// line: what follows it is read again, whole, in the next cycle.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "CommonFunc.h"
#include "FuzzSupport.h"

namespace {

constexpr int kIndex = 1;
// Every 800 pieces a cycle pauses for 200 ms; inputs with more lines than
// that would only measure the pause.
constexpr size_t kMaxLines = 700;

void EmptyDirectory(const std::string& dir) {
  if (DIR* d = opendir(dir.c_str())) {
    while (struct dirent* e = readdir(d)) {
      if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) unlink((dir + "/" + e->d_name).c_str());
    }
    closedir(d);
  }
}

// The offset a cycle must leave after reading `content` from its start.
long CompleteLinesEnd(const std::string& content) {
  const size_t last = content.rfind('\n');
  return last == std::string::npos ? 0 : static_cast<long>(last + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string out_dir = fuzzsupport::ScratchDir() + "/out";
  static const std::string log_path = fuzzsupport::ScratchDir() + "/watched.log";
  static const bool made = [] { return mkdir(out_dir.c_str(), 0755) == 0; }();
  (void)made;

  const std::string input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> items;
  size_t start = 0;
  for (int i = 0; i < 3; ++i) {
    const size_t end = input.find('\n', start);
    if (end == std::string::npos) return 0;
    items.push_back(fuzzsupport::Sep(input.substr(start, end - start)));
    start = end + 1;
  }
  const std::string content = input.substr(start);
  size_t lines = 0;
  for (char c : content) lines += c == '\n';
  if (lines > kMaxLines) return 0;

  EmptyDirectory(out_dir);
  for (int& threshold : m_nCntFaultArray) threshold = -1;
  m_strOldLogDate[0] = '\0';

  CColumnLogger logger;
  fgStrCopy(logger.m_strOutPutPath, sizeof(logger.m_strOutPutPath), (out_dir + "/").c_str());
  std::vector<char> name = fuzzsupport::Writable(log_path);
  std::vector<char> pattern = fuzzsupport::Writable(items[0]);
  std::vector<char> delimitor = fuzzsupport::Writable(items[1]);
  std::vector<char> text = fuzzsupport::Writable(items[2]);
  std::vector<char> none = fuzzsupport::Writable("NULL");
  std::vector<char> seclog = none, number = none, date = none;
  const int added = logger.fAddLogInfo(kIndex, name.data(), 1, 2, pattern.data(), none.data(), none.data(), 0, 0,
                                       none.data(), none.data(), none.data(), none.data(), seclog.data(),
                                       delimitor.data(), number.data(), text.data(), date.data());
  if (added != 0) return 0;
  ST_LOGFILE_INFO* record = logger.m_pclLogFileList->fGetNode(kIndex);
  FUZZ_CHECK(record != nullptr);

  // First part, a cycle, the rest, another cycle.
  const size_t cut = content.size() / 2;
  FUZZ_CHECK(fuzzsupport::WriteWhole(log_path, content.data(), cut));
  logger.fLogGather();
  FUZZ_CHECK(record->m_lOffSet == CompleteLinesEnd(content.substr(0, cut)));
  FILE* f = fopen(log_path.c_str(), "ab");
  FUZZ_CHECK(f != nullptr);
  FUZZ_CHECK(fwrite(content.data() + cut, 1, content.size() - cut, f) == content.size() - cut);
  fclose(f);
  // The collector takes the first cycle's event file away: a cycle in the
  // same second must not find its "out_" name taken.
  EmptyDirectory(out_dir);
  logger.fLogGather();
  FUZZ_CHECK(record->m_lOffSet == CompleteLinesEnd(content));
  FUZZ_CHECK(l_pstrLineBuf == nullptr && logger.m_pstrOriginalBuf == nullptr);
  return 0;
}
