#include "StrPattern.h"

#include <cstdint>
#include <cstring>
#include <new>

namespace {

constexpr int PATTERN_TEXT_MAX = 2047;   // pattern text and normalised sub-pattern text
constexpr int SUBJECT_MAX = 2047;        // a longer subject is matched on this many characters
constexpr int FIRST_TOKEN_CAP = 16;      // "(a)&(NOT:b)" takes 9 tokens
constexpr int SUB_ENTRIES = 512;         // entry 511 is always empty: 511 usable entries
constexpr int PIECE_MAX = 511;           // characters per piece, escapes removed
// Pieces come from distinct characters of the normalised text, so all of
// them with their NULs and the leading empty piece fit in this.
constexpr int PIECE_POOL_SIZE = PATTERN_TEXT_MAX + SUB_ENTRIES + 1;

constexpr char TOKEN_OPEN = '(';
constexpr char TOKEN_CLOSE = ')';
constexpr char TOKEN_AND = '&';
constexpr char TOKEN_OR = '|';
constexpr char TOKEN_SUB = 'P';

// Connector codes of the compiled entries.
constexpr char CONNECTOR_END = '\0';
constexpr char CONNECTOR_BAR = '|';
constexpr char CONNECTOR_GAP = '.';  // ".*"

constexpr char ESCAPE = '\\';
constexpr char NOT_PREFIX[] = "NOT:";
constexpr int NOT_PREFIX_LEN = 4;

bool HasNotPrefix(const char* l_pstrText) {
  return std::strncmp(l_pstrText, NOT_PREFIX, NOT_PREFIX_LEN) == 0;
}

}  // namespace

// One token. Parentheses and operators carry only their type. A sub-pattern
// keeps its text, pieces and connectors in one allocation sized to what they
// use: m_nEntries entries (piece offset, piece length, connector), the text
// as written, then the pieces, each NUL-terminated. The last stored entry
// always has an empty connector and at most 512 are stored, the 512th with
// an empty piece: entry 511 is always empty, as if 512 were kept.
struct CStrPattern::ST_PATTERN_BUF {
  char m_chType = 0;                        // '(' ')' '&' '|' or 'P'
  int m_nEntries = 0;                       // P: entries stored, 1 to 512; 0 = nothing compiled
  const char* m_strPattern = "";            // P: the text as written, "NOT:" included
  bool m_bNot = false;                      // P: the text begins with "NOT:"
  const uint16_t* m_vstrLogPT = nullptr;    // P: offset of piece i in m_strPieces (0: empty)
  const uint16_t* m_vnLogPTLen = nullptr;   // P: length of piece i
  const char* m_vstrLogOP = nullptr;        // P: connector i (CONNECTOR_*)
  const char* m_strPieces = nullptr;        // P: the pieces; offset 0 is the empty piece
  std::unique_ptr<uint16_t[]> m_pBlock;     // P: the allocation behind the pointers above
};

CStrPattern::CStrPattern() : m_nPatternBufTOP(0), m_nPatternBufCap(0) {}

CStrPattern::~CStrPattern() { fPatternBufClear(); }

void CStrPattern::fPatternBufClear() {
  m_vstPatternBuf.reset();
  m_nPatternBufCap = 0;
  m_nPatternBufTOP = 0;
}

int CStrPattern::fPatternPut(char type, char* text) {
  if (m_nPatternBufTOP >= PATTERN_TOKENS) return 0;
  if (m_nPatternBufTOP == m_nPatternBufCap) {
    // Double the table; a move keeps every token's pieces where they are.
    const int l_nCap = m_nPatternBufCap == 0 ? FIRST_TOKEN_CAP : 2 * m_nPatternBufCap;
    std::unique_ptr<ST_PATTERN_BUF[]> l_pstTable(new (std::nothrow) ST_PATTERN_BUF[l_nCap]);
    if (!l_pstTable) return 0;
    for (int i = 0; i < m_nPatternBufTOP; ++i) l_pstTable[i] = std::move(m_vstPatternBuf[i]);
    m_vstPatternBuf = std::move(l_pstTable);
    m_nPatternBufCap = l_nCap;
  }
  ST_PATTERN_BUF* l_pstToken = &m_vstPatternBuf[m_nPatternBufTOP++];
  l_pstToken->m_chType = type;
  return text ? fSubPatternComp(l_pstToken, text) : 1;
}

int CStrPattern::fPatternComp(char* pattern) {
  if (!pattern) return 0;
  fPatternBufClear();
  // Records hold patterns in 2048 bytes, so a longer text is refused whole;
  // the object is then empty and matches nothing.
  if (std::strlen(pattern) > static_cast<size_t>(PATTERN_TEXT_MAX)) return 0;

  // Parenthesis and operator tokens past the 1024th are dropped without an
  // error; one that is lost for want of memory fails the compile.
  bool l_bNoMemory = false;
  auto fPutMark = [&](char l_chType) {
    if (fPatternPut(l_chType, nullptr) != 1 && m_nPatternBufTOP < PATTERN_TOKENS) l_bNoMemory = true;
  };
  fPutMark(TOKEN_OPEN);

  // Text gathered since the last group boundary; the length check above
  // keeps it within its 2048 bytes.
  char l_strAccum[PATTERN_TEXT_MAX + 1];
  int l_nAccumLen = 0;
  int l_nDepth = 0;
  int l_nResult = 1;
  bool l_bEscaped = false;
  char l_chPrevious = 0;  // last structural character: '(' or ')', 0 for none

  for (int l_nIndx = 0; pattern[l_nIndx] != '\0'; ++l_nIndx) {
    const char l_ch = pattern[l_nIndx];
    if (l_ch == ESCAPE) {
      l_strAccum[l_nAccumLen++] = l_ch;
      l_bEscaped = !l_bEscaped;
      l_chPrevious = 0;
      continue;
    }
    if (l_ch == '(' && !l_bEscaped) {
      ++l_nDepth;
      l_chPrevious = '(';
      l_nAccumLen = 0;  // text before a group is discarded
      fPutMark(TOKEN_OPEN);
    } else if (l_ch == ')' && !l_bEscaped) {
      --l_nDepth;
      l_chPrevious = ')';
      if (l_nAccumLen > 0) {
        l_strAccum[l_nAccumLen] = '\0';
        l_nResult = fPatternPut(TOKEN_SUB, l_strAccum);
        if (l_nResult != 1) break;
      }
      l_nAccumLen = 0;
      fPutMark(TOKEN_CLOSE);
    } else if ((l_ch == '&' || l_ch == '|') && l_chPrevious == ')' && pattern[l_nIndx + 1] == '(') {
      l_nAccumLen = 0;
      fPutMark(l_ch == '&' ? TOKEN_AND : TOKEN_OR);
      l_chPrevious = 0;
    } else {
      // Escaped parentheses, stray operators and all other text.
      l_strAccum[l_nAccumLen++] = l_ch;
      l_chPrevious = 0;
    }
    l_bEscaped = false;
  }

  if (l_nAccumLen > 0 && l_nResult == 1) {
    l_strAccum[l_nAccumLen] = '\0';
    l_nResult = fPatternPut(TOKEN_SUB, l_strAccum);
  }
  fPutMark(TOKEN_CLOSE);
  return (l_nDepth == 0 && l_nResult == 1 && !l_bNoMemory) ? 1 : 0;
}

int CStrPattern::fSelectStrCpy(char* dst, char* src, char escape) {
  if (!src) return 0;
  if (!dst) return src[0] == '\0' ? 1 : 0;
  bool l_bEscaped = false;
  for (const char* l_pstrSrc = src; *l_pstrSrc != '\0'; ++l_pstrSrc) {
    if (*l_pstrSrc == escape && !l_bEscaped) {
      l_bEscaped = true;
      continue;
    }
    *dst++ = *l_pstrSrc;
    l_bEscaped = false;
  }
  return 1;
}

namespace {

// Stage 1 output: the alternatives rewritten so that anchors become gaps
// (or their absence), joined by bars.
class CNormalisedText {
 public:
  // Appends alternative `l_pstrAlt` of `l_nLen` characters in its rewritten
  // form. Returns false when the text would pass its limit.
  bool fAddAlternative(const char* l_pstrAlt, int l_nLen, bool l_bLast) {
    const bool l_bCaret = l_nLen > 0 && l_pstrAlt[0] == '^';
    bool l_bDollar = false;
    if (l_nLen > 0 && l_pstrAlt[l_nLen - 1] == '$') {
      int l_nSlashes = 0;
      for (int i = l_nLen - 2; i >= 0 && l_pstrAlt[i] == ESCAPE; --i) ++l_nSlashes;
      l_bDollar = l_nSlashes % 2 == 0;
    }
    const char* l_pstrBody = l_pstrAlt + (l_bCaret ? 1 : 0);
    int l_nBodyLen = l_nLen - (l_bCaret ? 1 : 0) - (l_bDollar ? 1 : 0);
    bool l_bOk = true;
    if (!l_bCaret) l_bOk = l_bOk && fAppend(".*", 2);
    l_bOk = l_bOk && fAppend(l_pstrBody, l_nBodyLen);
    if (!l_bDollar) l_bOk = l_bOk && fAppend(".*", 2);
    if (!l_bLast) l_bOk = l_bOk && fAppend("|", 1);
    return l_bOk;
  }
  const char* fText() const { return m_strText; }
  int fLength() const { return m_nLen; }

 private:
  bool fAppend(const char* l_pstrText, int l_nLen) {
    if (m_nLen + l_nLen > PATTERN_TEXT_MAX) return false;
    std::memcpy(m_strText + m_nLen, l_pstrText, static_cast<size_t>(l_nLen));
    m_nLen += l_nLen;
    m_strText[m_nLen] = '\0';
    return true;
  }
  char m_strText[PATTERN_TEXT_MAX + 1] = {};
  int m_nLen = 0;
};

}  // namespace

int CStrPattern::fSubPatternComp(ST_PATTERN_BUF* l_pstToken, char* l_pstrText) {
  const size_t l_nTextLen = std::strlen(l_pstrText);
  if (l_nTextLen > static_cast<size_t>(PATTERN_TEXT_MAX)) return 0;
  const char* l_pstrBody = l_pstrText + (HasNotPrefix(l_pstrText) ? NOT_PREFIX_LEN : 0);

  // Stage 1: split at unescaped bars (a newline counts as a bar) and rewrite
  // each alternative with its anchors.
  char l_strWork[PATTERN_TEXT_MAX + 1];
  const int l_nBodyLen = static_cast<int>(std::strlen(l_pstrBody));
  for (int i = 0; i <= l_nBodyLen; ++i) l_strWork[i] = l_pstrBody[i] == '\n' ? '|' : l_pstrBody[i];
  CNormalisedText l_clNorm;
  bool l_bEscaped = false;
  int l_nAltStart = 0;
  for (int i = 0; i < l_nBodyLen; ++i) {
    if (l_strWork[i] == ESCAPE) {
      l_bEscaped = !l_bEscaped;
      continue;
    }
    if (l_strWork[i] == '|' && !l_bEscaped) {
      if (!l_clNorm.fAddAlternative(l_strWork + l_nAltStart, i - l_nAltStart, false)) return 0;
      l_nAltStart = i + 1;
    }
    l_bEscaped = false;
  }
  if (!l_clNorm.fAddAlternative(l_strWork + l_nAltStart, l_nBodyLen - l_nAltStart, true)) return 0;

  // Stage 2: cut the normalised text into pieces at unescaped bars and gaps.
  uint16_t l_vnOffset[SUB_ENTRIES] = {};
  uint16_t l_vnLength[SUB_ENTRIES] = {};
  char l_vchConnector[SUB_ENTRIES] = {};
  char l_strPool[PIECE_POOL_SIZE] = {};  // zero-filled: fSelectStrCpy writes no NUL
  int l_nPoolLen = 1;                    // offset 0 is the empty piece
  char l_strAccum[PATTERN_TEXT_MAX + 1];
  int l_nAccumLen = 0;
  int l_nEntry = 0;

  // Stores the accumulated text as piece l_nEntry. False when too long.
  auto fStorePiece = [&]() -> bool {
    if (l_nAccumLen == 0) return true;
    l_strAccum[l_nAccumLen] = '\0';
    char* l_pstrPiece = l_strPool + l_nPoolLen;
    fSelectStrCpy(l_pstrPiece, l_strAccum, ESCAPE);
    const size_t l_nPieceLen = std::strlen(l_pstrPiece);
    if (l_nPieceLen > static_cast<size_t>(PIECE_MAX)) return false;
    if (l_nPieceLen > 0) {
      l_vnOffset[l_nEntry] = static_cast<uint16_t>(l_nPoolLen);
      l_vnLength[l_nEntry] = static_cast<uint16_t>(l_nPieceLen);
      l_nPoolLen += static_cast<int>(l_nPieceLen) + 1;
    }
    return true;
  };
  // Ends entry l_nEntry with `l_chConnector`. False when it would be entry
  // 511 or later, or its piece is too long.
  auto fCloseEntry = [&](char l_chConnector) -> bool {
    if (l_nEntry >= SUB_ENTRIES - 1 || !fStorePiece()) return false;
    l_vchConnector[l_nEntry++] = l_chConnector;
    l_nAccumLen = 0;
    return true;
  };

  const char* l_pstrNorm = l_clNorm.fText();
  l_bEscaped = false;
  for (int i = 0; i < l_clNorm.fLength(); ++i) {
    const char l_ch = l_pstrNorm[i];
    if (l_ch == ESCAPE) {
      l_strAccum[l_nAccumLen++] = l_ch;
      l_bEscaped = !l_bEscaped;
      continue;
    }
    if (l_ch == '|' && !l_bEscaped) {
      if (!fCloseEntry(CONNECTOR_BAR)) return 0;
    } else if (l_ch == '.' && !l_bEscaped && l_pstrNorm[i + 1] == '*') {
      if (!fCloseEntry(CONNECTOR_GAP)) return 0;
      ++i;  // the '*'
    } else {
      l_strAccum[l_nAccumLen++] = l_ch;
    }
    l_bEscaped = false;
  }
  // The last entry: a trailing piece with an empty connector. Entry 511 must
  // stay empty.
  if (!fStorePiece()) return 0;
  if (l_nEntry >= SUB_ENTRIES - 1 && l_vnLength[l_nEntry] > 0) return 0;
  const int l_nEntries = l_nEntry + 1;

  // Copy into one block: offsets, lengths, connectors, text, pieces.
  const size_t l_nBytes = static_cast<size_t>(l_nEntries) * (2 * sizeof(uint16_t) + 1) +
                          l_nTextLen + 1 + static_cast<size_t>(l_nPoolLen);
  std::unique_ptr<uint16_t[]> l_pBlock(new (std::nothrow) uint16_t[(l_nBytes + 1) / 2]());
  if (!l_pBlock) return 0;
  uint16_t* l_pnOffsets = l_pBlock.get();
  uint16_t* l_pnLengths = l_pnOffsets + l_nEntries;
  char* l_pstrConnectors = reinterpret_cast<char*>(l_pnLengths + l_nEntries);
  char* l_pstrTextCopy = l_pstrConnectors + l_nEntries;
  char* l_pstrPieces = l_pstrTextCopy + l_nTextLen + 1;
  std::memcpy(l_pnOffsets, l_vnOffset, sizeof(uint16_t) * l_nEntries);
  std::memcpy(l_pnLengths, l_vnLength, sizeof(uint16_t) * l_nEntries);
  std::memcpy(l_pstrConnectors, l_vchConnector, static_cast<size_t>(l_nEntries));
  std::memcpy(l_pstrTextCopy, l_pstrText, l_nTextLen + 1);
  std::memcpy(l_pstrPieces, l_strPool, static_cast<size_t>(l_nPoolLen));

  l_pstToken->m_nEntries = l_nEntries;
  l_pstToken->m_strPattern = l_pstrTextCopy;
  l_pstToken->m_bNot = HasNotPrefix(l_pstrTextCopy);
  l_pstToken->m_vstrLogPT = l_pnOffsets;
  l_pstToken->m_vnLogPTLen = l_pnLengths;
  l_pstToken->m_vstrLogOP = l_pstrConnectors;
  l_pstToken->m_strPieces = l_pstrPieces;
  l_pstToken->m_pBlock = std::move(l_pBlock);
  return 1;
}

// A subject of at most 2047 characters is matched where it lies; only a
// longer one is copied, cut to its first 2047, once per call.
class CStrPattern::CSubject {
 public:
  explicit CSubject(const char* l_pstrSubject) {
    m_nLen = strnlen(l_pstrSubject, SUBJECT_MAX);
    m_pstrText = l_pstrSubject;
    if (l_pstrSubject[m_nLen] != '\0') {
      std::memcpy(m_strCut, l_pstrSubject, m_nLen);
      m_strCut[m_nLen] = '\0';
      m_pstrText = m_strCut;
    }
  }
  const char* fText() const { return m_pstrText; }
  size_t fLength() const { return m_nLen; }

 private:
  const char* m_pstrText;
  size_t m_nLen;
  char m_strCut[SUBJECT_MAX + 1];
};

int CStrPattern::fSubPatternEx(ST_PATTERN_BUF* l_pstToken, char* l_pstrSubject) {
  if (!l_pstrSubject) return 0;
  const CSubject l_clSubject(l_pstrSubject);
  return fSubPatternMatch(l_pstToken, l_clSubject.fText(), l_clSubject.fLength());
}

int CStrPattern::fSubPatternMatch(const ST_PATTERN_BUF* l_pstToken, const char* l_pstrSubject, size_t l_nLen) {
  if (l_nLen == 0) return 0;
  if (!l_pstToken || l_pstToken->m_nEntries == 0) return 0;  // refused at compile time
  const char* const l_pstrStart = l_pstrSubject;
  const char* const l_pstrEnd = l_pstrSubject + l_nLen;

  const ST_PATTERN_BUF& l_stTok = *l_pstToken;
  const char* l_pstrPos = l_pstrStart;  // where the next search starts; null: none
  const char* l_pstrHit = l_pstrStart;  // where the last search found its piece; null: none
  bool l_bFirst = true;
  int l_nFailures = 0;

  // Every entry up to the last stored one; the last has an empty connector,
  // so the loop always returns from inside.
  for (int i = 0; i < l_stTok.m_nEntries; ++i) {
    const char* l_pstrPiece = l_stTok.m_strPieces + l_stTok.m_vstrLogPT[i];
    const size_t l_nPieceLen = l_stTok.m_vnLogPTLen[i];
    const char l_chConnector = l_stTok.m_vstrLogOP[i];

    if (l_nPieceLen > 0) {
      if (!l_pstrPos || l_pstrPos == l_pstrEnd) {
        ++l_nFailures;
      } else if (l_bFirst) {
        // Prefix test; the hit stays where it is.
        if (static_cast<size_t>(l_pstrEnd - l_pstrPos) < l_nPieceLen ||
            std::memcmp(l_pstrPos, l_pstrPiece, l_nPieceLen) != 0)
          ++l_nFailures;
      } else {
        l_pstrHit = std::strstr(l_pstrPos, l_pstrPiece);
        if (!l_pstrHit) ++l_nFailures;
      }
    }
    l_bFirst = false;

    if (l_chConnector == CONNECTOR_BAR) {
      if (l_nFailures == 0) return 1;
      // The next alternative starts afresh. This holds also when it is the
      // last entry, an alternative anchored at both ends without a gap (as in
      // "x|^y$"): its piece is then a prefix test, just as the same
      // alternative is anywhere else in a sub-pattern or on its own.
      l_bFirst = true;
      l_nFailures = 0;
      l_pstrPos = l_pstrHit = l_pstrStart;
    } else if (l_chConnector == CONNECTOR_GAP) {
      if (l_stTok.m_vstrLogOP[i + 1] == CONNECTOR_END) {
        // The piece after the last gap is a suffix test on the whole subject.
        const size_t l_nLastLen = l_stTok.m_vnLogPTLen[i + 1];
        const char* l_pstrLast = l_stTok.m_strPieces + l_stTok.m_vstrLogPT[i + 1];
        if (l_nLen < l_nLastLen || std::memcmp(l_pstrEnd - l_nLastLen, l_pstrLast, l_nLastLen) != 0)
          ++l_nFailures;
        return l_nFailures == 0 ? 1 : 0;
      }
      // After an empty piece the search restarts where the last piece was found.
      if (!l_pstrHit || static_cast<size_t>(l_pstrEnd - l_pstrHit) < l_nPieceLen)
        l_pstrPos = nullptr;
      else
        l_pstrPos = l_pstrHit + l_nPieceLen;
    } else {
      return l_nFailures == 0 ? 1 : 0;
    }
  }
  return l_nFailures == 0 ? 1 : 0;
}

int CStrPattern::fPatternEx(char* subject) {
  if (!subject || m_nPatternBufTOP == 0) return 0;
  const CSubject l_clSubject(subject);
  // The usual expression is one group, "(" sub-pattern ")": its value is the
  // sub-pattern's, as the stack below would fold it.
  if (m_nPatternBufTOP == 3 && m_vstPatternBuf[0].m_chType == TOKEN_OPEN && m_vstPatternBuf[1].m_chType == TOKEN_SUB &&
      m_vstPatternBuf[2].m_chType == TOKEN_CLOSE) {
    const int l_nValue = fSubPatternMatch(&m_vstPatternBuf[1], l_clSubject.fText(), l_clSubject.fLength());
    return m_vstPatternBuf[1].m_bNot ? 1 - l_nValue : l_nValue;
  }

  // Holds '(' markers, operator characters and the values 0 and 1. Every
  // token pushes at most one entry, so 1024 entries always suffice.
  char l_vchStack[PATTERN_TOKENS];
  int l_nTop = 0;
  int l_nResult = 0;
  auto fPush = [&](char l_ch) {
    if (l_nTop < PATTERN_TOKENS) l_vchStack[l_nTop++] = l_ch;
  };

  for (int l_nIndx = 0; l_nIndx < m_nPatternBufTOP; ++l_nIndx) {
    ST_PATTERN_BUF* l_pstToken = &m_vstPatternBuf[l_nIndx];
    switch (l_pstToken->m_chType) {
      case TOKEN_AND:
      case TOKEN_OR:
      case TOKEN_OPEN:
        fPush(l_pstToken->m_chType);
        break;
      case TOKEN_SUB: {
        // Every sub-pattern is evaluated; there is no short-circuit.
        int l_nValue = fSubPatternMatch(l_pstToken, l_clSubject.fText(), l_clSubject.fLength());
        if (l_pstToken->m_bNot) l_nValue = 1 - l_nValue;
        fPush(static_cast<char>(l_nValue));
        break;
      }
      case TOKEN_CLOSE: {
        // Fold right to left down to the '(' marker: no precedence, right
        // grouping, and beside an operator-less neighbour the left value wins.
        l_nResult = 0;
        char l_chOperator = 0;
        bool l_bMarker = false;
        while (l_nTop > 0) {
          const char l_chEntry = l_vchStack[--l_nTop];
          if (l_chEntry == TOKEN_OPEN) {
            l_bMarker = true;
            break;
          }
          if (l_chEntry == TOKEN_AND || l_chEntry == TOKEN_OR) {
            l_chOperator = l_chEntry;
          } else if (l_chOperator == TOKEN_AND) {
            l_nResult = l_nResult & l_chEntry;
          } else if (l_chOperator == TOKEN_OR) {
            l_nResult = l_nResult | l_chEntry;
          } else {
            l_nResult = l_chEntry;
          }
        }
        // A ')' with no open group (the depth dipped below zero, as in
        // "a))((b") folds everything left of it and leaves the stack empty;
        // its value is kept only as the latest result.
        if (l_bMarker) fPush(static_cast<char>(l_nResult));
        break;
      }
      default:
        break;
    }
  }
  return l_nResult;
}
