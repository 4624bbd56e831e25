// CCharPatternList: the text column rules of all watched logs
// (LOGnn_CHAR_PATTERN), one ST_CHAR_PATTERN_LIST per rule. A rule with
// comparison code 3 also holds its text compiled as a pattern.
//
// Order: that of every rule registry (RuleRegistry.h): rules grouped per entry
// number, groups in arrival order, the newest rule of a group first, so
// fGetNode(nn) yields the rule added last for nn.
//
// Ownership: the registry allocates, owns and frees its records; a rule owns
// the compiled patterns in its five slots, released whenever the rule is
// removed or the registry is cleared or destroyed. Pointers returned by the
// getters stay valid until that record is removed.
//
// Threads: main thread only; one cursor walk at a time.
#pragma once

#include "RuleRegistry.h"
#include "PatternSlots.h"

class CStrPattern;

constexpr int RULE_FAULT_PATTERN_SIZE = 1024;  // comparison text: at most 1023 characters

struct ST_CHAR_PATTERN_LIST {
  int m_nIndex;       // entry number nn of the watched log (the key)
  int m_nComumnNum;   // column number, counted from 1
  int m_nFaultLevel;  // fault level written into the event
  // Comparison text, or the pattern text for comparison code 3.
  char m_strFaultPattern[RULE_FAULT_PATTERN_SIZE];
  // 1: event when the column equals the text; 2: when it differs; 3: when the pattern matches.
  int m_nCompareNum;
  // Compiled patterns, owned by the rule; null when empty or not compiled.
  // The evaluation uses slot 0.
  CStrPattern* m_vpclStrPattern[PATTERN_SLOT_CNT];
  // The text of each compiled slot; empty for an empty slot.
  char m_vstrLogPattern[PATTERN_SLOT_CNT][PATTERN_TEXT_SIZE];
  ST_CHAR_PATTERN_LIST* m_pstNext;  // next rule, null at the end
  ST_CHAR_PATTERN_LIST* m_pstPrev;  // previous rule, null at the head
};

struct CharRuleTraits {
  static int fKey(const ST_CHAR_PATTERN_LIST* l_pstNode) { return l_pstNode->m_nIndex; }
  static void fCopyPayload(ST_CHAR_PATTERN_LIST* l_pstDst, const ST_CHAR_PATTERN_LIST* l_pstSrc);
  static void fRelease(ST_CHAR_PATTERN_LIST* l_pstNode) { fgPatternSlotsRelease(l_pstNode->m_vpclStrPattern); }
  static constexpr int kInsertRule = INSERT_BEFORE_SAME_KEY;
};

class CCharPatternList : public CRuleRegistry<ST_CHAR_PATTERN_LIST, CharRuleTraits> {
 public:
  // Empty registry: order type 1, nominal maximum 90,000, duplicates allowed.
  CCharPatternList() = default;

  // Builds a rule with empty pattern slots (the text is copied, cut to 1023
  // characters; null is stored empty) and inserts it by the order rule.
  // 1 inserted, -1 when memory is exhausted (error code and text of the list).
  int fAddLinkedList(int l_nIndex, int l_nComumnNum, int l_nFaultLevel, int l_nCompareNum, char* l_pstFaultPattern);

  // Compiles a pattern value into the slots of the rule fGetNode(l_nIndx)
  // yields (the rule added last for that entry number), after emptying them.
  // Entries at the tilde separator; in "x{|}pattern" only the text after the
  // first bar separator counts; at most five stored (PatternSlots.h). A null
  // value reads as empty. -1 when the entry number has no rule (nothing
  // changes), 0 when a pattern was longer than 2047 characters, otherwise 1.
  // A text that does not compile leaves its slot null; the rule then never fires.
  int fAddPatternLinkedList(int l_nIndx, char* l_pstrPattern);

  // Empties the five slots (texts and compiled patterns) of the first rule of
  // that entry number. -1 when there is none, otherwise 1.
  int fClearPattern(int l_nIndx);

  // Compiles `l_pstrPattern` into slot `l_nPatternIndex` (0..4) of the rule,
  // releasing what the slot held; the slot text is not touched. 1 when it
  // compiled; 0 when it did not (the slot is then null), or when the rule or
  // text is null or the slot number is outside 0..4.
  int fPatternComp(ST_CHAR_PATTERN_LIST* l_pstLogFileInfo, int l_nPatternIndex, char* l_pstrPattern);
  // Releases the compiled pattern of one slot and sets it null. 1; -1 for a
  // null rule or a slot number outside 0..4.
  int fPatternClear(ST_CHAR_PATTERN_LIST* l_pstLogFileInfo, int l_nPatternIndex);
};
