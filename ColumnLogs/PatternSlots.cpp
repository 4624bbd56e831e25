#include "PatternSlots.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "CommonConst.h"
#include "StrPattern.h"

namespace {

// Decimal value of a grade text, like strtol with base 10, kept inside int.
int fParseGrade(std::string_view l_svGrade) {
  const std::string l_strGrade(l_svGrade);
  const long l_lValue = strtol(l_strGrade.c_str(), nullptr, 10);
  if (l_lValue > INT_MAX) return INT_MAX;
  if (l_lValue < INT_MIN) return INT_MIN;
  return static_cast<int>(l_lValue);
}

}  // namespace

int fgPatternSlotComp(CStrPattern** l_ppclSlot, char* l_pstrPattern) {
  if (l_ppclSlot == nullptr) return 0;
  fgPatternSlotClear(l_ppclSlot);
  if (l_pstrPattern == nullptr) return 0;
  CStrPattern* l_pclPattern = new (std::nothrow) CStrPattern();
  if (l_pclPattern == nullptr) return 0;
  if (l_pclPattern->fPatternComp(l_pstrPattern) == 1) {
    *l_ppclSlot = l_pclPattern;
    return 1;
  }
  // A failed compile may leave tokens in the object: only a compiled object
  // is ever kept in a slot.
  delete l_pclPattern;
  return 0;
}

void fgPatternSlotClear(CStrPattern** l_ppclSlot) {
  if (l_ppclSlot == nullptr) return;
  delete *l_ppclSlot;
  *l_ppclSlot = nullptr;
}

void fgPatternSlotsRelease(CStrPattern** l_vpclSlot) {
  for (int l_nSlot = 0; l_nSlot < PATTERN_SLOT_CNT; ++l_nSlot) fgPatternSlotClear(&l_vpclSlot[l_nSlot]);
}

void fgPatternSlotsClearTexts(char (*l_vstrText)[PATTERN_TEXT_SIZE]) {
  for (int l_nSlot = 0; l_nSlot < PATTERN_SLOT_CNT && l_vstrText[l_nSlot][0] != '\0'; ++l_nSlot)
    l_vstrText[l_nSlot][0] = '\0';
}

int fgFillPatternSlots(const char* l_pstrValue, CStrPattern** l_vpclSlot,
                       char (*l_vstrText)[PATTERN_TEXT_SIZE], int* l_vnGrade, int* l_pnStored) {
  const std::string_view l_svTilde(SEP_TILDE, SEP_LEN);
  const std::string_view l_svBar(SEP_BAR, SEP_LEN);
  // The value is only read: entries are views into it, so nothing is written
  // into the caller's text.
  std::string_view l_svRest(l_pstrValue != nullptr ? l_pstrValue : "");
  int l_nResult = 1;
  int l_nStored = 0;
  bool l_bMore = true;
  while (l_bMore && l_nStored < PATTERN_SLOT_CNT) {
    const size_t l_nEnd = l_svRest.find(l_svTilde);
    const std::string_view l_svEntry = l_svRest.substr(0, l_nEnd);
    if (l_nEnd == std::string_view::npos) {
      l_bMore = false;
    } else {
      l_svRest.remove_prefix(l_nEnd + SEP_LEN);
    }

    std::string_view l_svPattern = l_svEntry;
    std::string_view l_svGrade;
    bool l_bHasGrade = false;
    const size_t l_nBar = l_svEntry.find(l_svBar);
    if (l_nBar != std::string_view::npos) {
      l_bHasGrade = true;
      l_svGrade = l_svEntry.substr(0, l_nBar);
      l_svPattern = l_svEntry.substr(l_nBar + SEP_LEN);
    }

    if (l_svPattern.empty()) continue;
    if (l_svPattern.size() >= static_cast<size_t>(PATTERN_TEXT_SIZE)) {
      l_nResult = 0;
      continue;
    }
    char* l_pstrText = l_vstrText[l_nStored];
    memcpy(l_pstrText, l_svPattern.data(), l_svPattern.size());
    l_pstrText[l_svPattern.size()] = '\0';
    fgPatternSlotComp(&l_vpclSlot[l_nStored], l_pstrText);
    if (l_bHasGrade && l_vnGrade != nullptr) l_vnGrade[l_nStored] = fParseGrade(l_svGrade);
    ++l_nStored;
  }
  if (l_pnStored != nullptr) *l_pnStored = l_nStored;
  return l_nResult;
}
