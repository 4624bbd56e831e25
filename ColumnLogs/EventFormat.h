// Names, commands and text of the event files: pure functions, no I/O.
//
// Every function writes into the caller's buffer of `size` bytes and always
// leaves it NUL-terminated (when size > 0). Two kinds of result:
//  - names and commands (fixed 512-byte fields): 1 when the whole text fit,
//    0 when it did not (the buffer is then left empty, so a cut name is never
//    used), -1 for a null argument;
//  - messages and event lines (any length): the length of the whole text
//    without its NUL, as snprintf counts it, or -1 for a null argument or an
//    unknown comparison code. A result >= size means the text was cut; the
//    caller formats again into a buffer of result + 1 bytes (fgFormatFull).
//
// Event line layouts (the bar separator is SEP_BAR, 03 1F 7C):
//   rule event:      "%d|%d" BAR "%d" BAR "COLUMN[%d] %s, ORIGINAL_MSG:%s\n"
//   line-rate event: "%d|4" BAR "%d" BAR "%s log count[%d] >= [%d]\n"
#pragma once

#include <cstddef>
#include <ctime>
#include <memory>
#include <new>

// Event file of a cycle while it is written: "<outPath>ing_YYYYMMDD-hhmmss".
// `outPath` is a plain prefix (it should end with "/").
int fgMakeEventFileName(char* buf, size_t size, const char* outPath, const struct tm* t);

// Shell command that hands the cycle's event file over to the collector:
// "mv <eventFileName> <outPath>out_YYYYMMDD-hhmmss > /dev/null 2>&1".
int fgMakeCloseOutCommand(char* buf, size_t size, const char* eventFileName, const char* outPath,
                          const struct tm* t);

// Operator text of numeric comparison code 1..6 (">", ">=", "<", "<=", "==",
// "!="); null for any other code.
const char* fgCompareOperatorText(int compareNum);

// Numeric rule messages: "Value[%d] <op> %d" and "Value[%.2f] <op> %.2f"
// (single-precision values widened to double).
long fgFormatIntMessage(char* buf, size_t size, int compareNum, int value, int threshold);
long fgFormatFloatMessage(char* buf, size_t size, int compareNum, float value, float threshold);

// Text rule message: code 1 "Value[%s] == %s"; codes 2 and 3 "Value[%s] != %s".
long fgFormatCharMessage(char* buf, size_t size, int compareNum, const char* column, const char* pattern);

// Rule event line (type 1 numeric, 2 text); `line` is the whole current line
// without its line end. Nothing in `msg` or `line` is escaped.
long fgFormatRuleEvent(char* buf, size_t size, int index, int type, int faultLevel, int column, const char* msg,
                       const char* line);

// Line-rate event line for fault `level`: `dateText` is the date text of the
// last line of the second that ended (may be empty).
long fgFormatLineRateEvent(char* buf, size_t size, int index, int level, const char* dateText, int count,
                           int threshold);

// Formats a text in full whatever its length: `fnFormat(buf, size)` is one of
// the snprintf-like functions above (bound in a lambda). The text goes into
// `stackBuf` when it fits; otherwise into a heap buffer of exactly the needed
// size, which `heapBuf` then owns. Returns the text and sets *len to its
// length; null when formatting fails or memory is exhausted.
template <class Fn>
char* fgFormatFull(char* stackBuf, size_t stackSize, std::unique_ptr<char[]>& heapBuf, long* len, Fn&& fnFormat) {
  long l_lLen = fnFormat(stackBuf, stackSize);
  if (l_lLen < 0) return nullptr;
  char* l_pstrText = stackBuf;
  if (static_cast<size_t>(l_lLen) >= stackSize) {
    heapBuf.reset(new (std::nothrow) char[static_cast<size_t>(l_lLen) + 1]);
    if (heapBuf == nullptr) return nullptr;
    if (fnFormat(heapBuf.get(), static_cast<size_t>(l_lLen) + 1) != l_lLen) return nullptr;
    l_pstrText = heapBuf.get();
  }
  if (len != nullptr) *len = l_lLen;
  return l_pstrText;
}
