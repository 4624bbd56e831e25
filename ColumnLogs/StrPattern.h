// CStrPattern: one compiled pattern expression of the line-pattern language,
// and the matcher that tests a text against it.
//
// The language: parenthesised groups joined by `&` (AND) and `|` (OR) with
// nothing between the operator and the parentheses, as in "(a)&(b)"; the
// operators have no precedence and group from the right, and of groups
// written side by side without an operator the leftmost one counts. Each
// group is a sub-pattern: alternatives separated by `|` or a newline, each
// alternative literal text in which ".*" is a gap, optionally anchored with
// `^` (first piece is a prefix test) and `$` (last piece is a suffix test);
// "NOT:" at the start of a sub-pattern inverts it. A backslash makes the next
// character literal. Comparisons are byte for byte and case-sensitive.
//
// Limits: 2047 characters of pattern text, 1024 tokens per expression, 511
// (piece, connector) entries per sub-pattern, 511 characters per piece and
// 2047 characters of normalised sub-pattern text; subjects are matched on
// their first 2047 characters.
//
// Threads: compile on one thread; once compiled the object is only read, so
// fPatternEx may then run on several threads at once.
#pragma once

#include <memory>

class CStrPattern {
 public:
  // No tokens.
  CStrPattern();
  // Releases every token.
  ~CStrPattern();
  CStrPattern(const CStrPattern&) = delete;
  CStrPattern& operator=(const CStrPattern&) = delete;

  // Compiles `pattern`, replacing any earlier compiled expression.
  // Returns 1 on success, 0 when the pattern is null (the earlier expression
  // then stays), longer than 2047 characters, has parentheses that do not
  // balance, needs more than 1024 tokens for its sub-patterns, or holds a
  // sub-pattern beyond the per-sub-pattern limits. Nothing is printed. After
  // a failure the object holds what was built so far and should be discarded.
  int fPatternComp(char* pattern);

  // Returns 1 when `subject` matches the compiled expression, 0 otherwise
  // (also for a null subject or an object without tokens). Reads the object
  // only and allocates nothing.
  int fPatternEx(char* subject);

  // Copies `src` into `dst`, which the caller has zero-filled and sized for
  // it, removing escapes: a single `escape` is dropped and the character
  // after it copied unchanged; two in a row give one. No terminating NUL is
  // written. Returns 0 when src is null, or dst is null and src is not
  // empty; otherwise 1.
  int fSelectStrCpy(char* dst, char* src, char escape);

 private:
  // One token of the compiled expression; defined with the engine.
  struct ST_PATTERN_BUF;

  static constexpr int PATTERN_TOKENS = 1024;

  // Releases every token and empties all slots.
  void fPatternBufClear();
  // Appends a token of `type`; compiles `text` into it when not null.
  // Returns 0 when all slots are in use or the text is refused, else 1.
  int fPatternPut(char type, char* text);
  // Compiles `text` into the token's pieces and connectors. Returns 1, or 0
  // when the sub-pattern exceeds a limit or memory is exhausted (the token
  // then holds no pieces and never matches).
  int fSubPatternComp(ST_PATTERN_BUF* l_pstToken, char* l_pstrText);
  // 1 when `subject` matches the sub-pattern (NOT: not applied), else 0.
  int fSubPatternEx(ST_PATTERN_BUF* l_pstToken, char* l_pstrSubject);
  // The same on a subject of `l_nLen` (at most 2047) characters followed by
  // a NUL, read in place.
  static int fSubPatternMatch(const ST_PATTERN_BUF* l_pstToken, const char* l_pstrSubject, size_t l_nLen);
  class CSubject;

  int m_nPatternBufTOP;  // tokens in use, 0 to 1024
  // The expression as tokens in pattern order. The table grows with the
  // tokens (never past 1024) rather than keeping 1024 slots, so that a
  // compiled pattern costs about what it holds.
  std::unique_ptr<ST_PATTERN_BUF[]> m_vstPatternBuf;
  int m_nPatternBufCap;  // tokens the table has room for
};
