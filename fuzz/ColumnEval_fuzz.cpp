// Column evaluation of log lines against a fuzzed rule set. The input is
// text, one item per line, with "{~}" and "{|}" standing for the separators:
//   1 LOGnn_SECLOG_LEVEL_CNT value   2 LOGnn_DELIMITOR value
//   3 LOGnn_NUMBER_PATTERN value     4 LOGnn_CHAR_PATTERN value
//   5 LOGnn_DATE_PATTERN value       6.. log lines, each evaluated in turn
// The rules go through CColumnLogger::fAddLogInfo into the registries, the
// lines through fColumnIndexFind as a gather cycle hands them over, and the
// events into a scratch event file. Every event must come out as exactly one
// line of the watched log's index, and every counted event must be there.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "FuzzSupport.h"

namespace {

constexpr int kIndex = 1;
constexpr size_t kMaxLines = 64;

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return lines;
}

// The delimiter set-up of a gather cycle: the first character before the
// tilde separator, the first after it, two delimiters unless it says NULL.
void SetDelimiters(CColumnLogger& logger, const std::string& value) {
  const std::string spec = std::string(value.c_str()).substr(0, 63);
  const size_t sep = spec.find(SEP_TILDE);
  m_chDilimitor1 = spec.empty() ? '\0' : spec[0];
  if (sep == std::string::npos) {
    m_chDilimitor2 = '\0';
    logger.m_nTokFlag = 1;
    return;
  }
  const std::string rest = spec.substr(sep + SEP_LEN);
  m_chDilimitor2 = rest.empty() ? '\0' : rest[0];
  logger.m_nTokFlag = rest == "NULL" ? 1 : 2;
}

// Hands one line to the evaluation the way the gather cycle does: 28 zero
// bytes, the text, a column buffer at least as long as the line.
void EvaluateLine(CColumnLogger& logger, const std::string& line) {
  const size_t capacity = LINE_RESERVED_BYTES + line.size() + 2;
  char* accumulator = new char[capacity]();
  memcpy(accumulator + LINE_RESERVED_BYTES, line.data(), line.size());
  delete[] l_pstrLineBuf;
  l_pstrLineBuf = accumulator;
  delete[] logger.m_pstrOriginalBuf;
  logger.m_pstrOriginalBuf = new char[capacity]();
  logger.m_lOriginalBufSize = static_cast<long>(capacity);
  logger.fColumnIndexFind(kIndex, 0, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string out_dir = fuzzsupport::ScratchDir() + "/";
  static const std::string event_file = out_dir + "ing_fuzz";
  unlink(event_file.c_str());

  std::vector<std::string> items = SplitLines(fuzzsupport::Sep(std::string(reinterpret_cast<const char*>(data), size)));
  if (items.size() < 6) return 0;

  // The process-wide evaluation state starts afresh for every input.
  for (int& threshold : m_nCntFaultArray) threshold = -1;
  m_strOldLogDate[0] = '\0';
  m_nNumFaFoundFlag = 0;

  CColumnLogger logger;
  fgStrCopy(logger.m_strOutPutPath, sizeof(logger.m_strOutPutPath), out_dir.c_str());
  fgStrCopy(logger.m_strOutPutFileName, sizeof(logger.m_strOutPutFileName), event_file.c_str());

  std::vector<char> name = fuzzsupport::Writable("/nonexistent/fuzz.log");
  std::vector<char> pattern = fuzzsupport::Writable("NULL");
  std::vector<char> unused1 = fuzzsupport::Writable("NULL"), unused2 = unused1, unused3 = unused1, unused4 = unused1,
                    unused5 = unused1, unused6 = unused1;
  std::vector<char> seclog = fuzzsupport::Writable(items[0]);
  std::vector<char> delimitor = fuzzsupport::Writable(items[1]);
  std::vector<char> number = fuzzsupport::Writable(items[2]);
  std::vector<char> text = fuzzsupport::Writable(items[3]);
  std::vector<char> date = fuzzsupport::Writable(items[4]);
  logger.fAddLogInfo(kIndex, name.data(), 1, 2, pattern.data(), unused1.data(), unused2.data(), 0, 0, unused3.data(),
                     unused4.data(), unused5.data(), unused6.data(), seclog.data(), delimitor.data(), number.data(),
                     text.data(), date.data());
  SetDelimiters(logger, items[1]);

  for (size_t i = 5; i < items.size() && i < 5 + kMaxLines; ++i) EvaluateLine(logger, items[i]);

  // Each counted event is one whole line of watched log 1 in the event file.
  const std::string events = fuzzsupport::ReadWhole(event_file);
  size_t lines = 0;
  for (size_t start = 0; start < events.size();) {
    const size_t end = events.find('\n', start);
    FUZZ_CHECK(end != std::string::npos);
    const std::string event = events.substr(start, end - start);
    FUZZ_CHECK(event.compare(0, 2, "1|") == 0);
    const bool rule_event = event.compare(2, 1, "1") == 0 || event.compare(2, 1, "2") == 0;
    FUZZ_CHECK(rule_event ? event.find(", ORIGINAL_MSG:") != std::string::npos
                          : event.compare(2, 1, "4") == 0 && event.find(" log count[") != std::string::npos);
    ++lines;
    start = end + 1;
  }
  FUZZ_CHECK(lines == static_cast<size_t>(logger.m_nFaultSendIncrease));
  return 0;
}
