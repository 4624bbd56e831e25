// Module log-mode selection: reads a text such as
// "ERROR:UNI,TCP:ALL|DEBUG:LAB:16,21" into the nine process-wide masks.
// The vocabulary is data (the tables below); the parser only walks it.
#include <cstdio>
#include <cstring>

#include "OmniLog.h"

int g_nLogModERROR = 0;
int g_nLogModNORMAL = 0;
int g_nLogModDEBUG = 0;
int g_nLoggingERROR1 = 0;
int g_nLoggingNORMAL1 = 0;
int g_nLoggingDEBUG1 = 0;
int g_nLoggingERROR2 = 0;
int g_nLoggingNORMAL2 = 0;
int g_nLoggingDEBUG2 = 0;

namespace {

struct ST_LOGWORD_BIT {
  const char* m_pstrWord;
  int m_nBit;
};

struct ST_LOGMODULE {
  const char* m_pstrWord;
  int m_nModuleBit;
  const ST_LOGWORD_BIT* m_pstComponents;
  size_t m_nComponents;
};

const ST_LOGWORD_BIT kUniComponents[] = {{"ALL", 0x3}, {"UNI", 0x1}, {"LIB", 0x2}};
const ST_LOGWORD_BIT kTcpComponents[] = {{"ALL", 0x4400000}, {"UNI", 0x400000}, {"LIB", 0x4000000}};
const ST_LOGWORD_BIT kEvuComponents[] = {{"ALL", 0x1000000}, {"UNI", 0x1000000}};
// The n-th number of the list (from 0) has bit n + 2; "ALL" is all of them and "UNI".
const ST_LOGWORD_BIT kLabComponents[] = {
    {"ALL", 0x23FFFFC}, {"UNI", 0x2000000}, {"1", 0x4},       {"2", 0x8},        {"3", 0x10},
    {"4", 0x20},        {"5", 0x40},        {"6", 0x80},      {"7", 0x100},      {"8", 0x200},
    {"9", 0x400},       {"12", 0x800},      {"14", 0x1000},   {"16", 0x2000},    {"18", 0x4000},
    {"19", 0x8000},     {"20", 0x10000},    {"21", 0x20000},  {"22", 0x40000},   {"23", 0x80000},
    {"24", 0x100000},   {"25", 0x200000},
};

template <size_t N>
constexpr size_t fCount(const ST_LOGWORD_BIT (&)[N]) {
  return N;
}

const ST_LOGMODULE kModules[] = {
    {"UNI", 0x10, kUniComponents, fCount(kUniComponents)},
    {"TCP", 0x20, kTcpComponents, fCount(kTcpComponents)},
    {"EVU", 0x40, kEvuComponents, fCount(kEvuComponents)},
    {"LAB", 0x80, kLabComponents, fCount(kLabComponents)},
};

// What a group's mode does at each level: 1 set, 0 clear, -1 leave.
// Module bits are only added (NOLOG clears); component bits are set up to
// the mode's level and cleared above it; "ALL" sets the masks outright.
struct ST_LOGMODE_EFFECT {
  const char* m_pstrWord;
  int m_vnModule[3];     // ERROR, NORMAL, DEBUG module masks
  int m_vnComponent[3];  // ERROR, NORMAL, DEBUG component masks
  int m_vnAll[3];        // module word "ALL": value of the three masks of each level
};

const ST_LOGMODE_EFFECT kModes[] = {
    {"ERROR", {1, -1, -1}, {1, 0, 0}, {-1, 0, 0}},
    {"NORMAL", {1, 1, -1}, {1, 1, 0}, {-1, -1, 0}},
    {"DEBUG", {1, 1, 1}, {1, 1, 1}, {-1, -1, -1}},
    {"NOLOG", {0, 0, 0}, {0, 0, 0}, {0, 0, 0}},
};

int* const kModuleMasks[3] = {&g_nLogModERROR, &g_nLogModNORMAL, &g_nLogModDEBUG};
int* const kAllMasks[3] = {&g_nLoggingERROR1, &g_nLoggingNORMAL1, &g_nLoggingDEBUG1};
int* const kComponentMasks[3] = {&g_nLoggingERROR2, &g_nLoggingNORMAL2, &g_nLoggingDEBUG2};

// A word of the text: [m_pstrBegin, m_pstrEnd), not terminated.
struct ST_TEXT_RANGE {
  const char* m_pstrBegin;
  const char* m_pstrEnd;

  bool fIs(const char* l_pstrWord) const {
    const size_t l_nLen = strlen(l_pstrWord);
    return static_cast<size_t>(m_pstrEnd - m_pstrBegin) == l_nLen && memcmp(m_pstrBegin, l_pstrWord, l_nLen) == 0;
  }
};

void fSetAll(int l_nValue) {
  for (int l_nLevel = 0; l_nLevel < 3; ++l_nLevel) {
    *kModuleMasks[l_nLevel] = l_nValue;
    *kAllMasks[l_nLevel] = l_nValue;
    *kComponentMasks[l_nLevel] = l_nValue;
  }
}

void fApplyBit(int* const (&l_vpnMasks)[3], const int (&l_vnEffect)[3], int l_nBit) {
  for (int l_nLevel = 0; l_nLevel < 3; ++l_nLevel) {
    if (l_vnEffect[l_nLevel] == 1) *l_vpnMasks[l_nLevel] |= l_nBit;
    if (l_vnEffect[l_nLevel] == 0) *l_vpnMasks[l_nLevel] &= ~l_nBit;
  }
}

// Calls l_fnVisit for every ","-separated word of the range, in order.
template <typename VISIT>
void fForEachWord(ST_TEXT_RANGE l_stList, VISIT l_fnVisit) {
  const char* l_pstrStart = l_stList.m_pstrBegin;
  while (true) {
    const char* l_pstrComma = static_cast<const char*>(memchr(l_pstrStart, ',', l_stList.m_pstrEnd - l_pstrStart));
    const char* l_pstrWordEnd = (l_pstrComma != nullptr) ? l_pstrComma : l_stList.m_pstrEnd;
    l_fnVisit(ST_TEXT_RANGE{l_pstrStart, l_pstrWordEnd});
    if (l_pstrComma == nullptr) return;
    l_pstrStart = l_pstrComma + 1;
  }
}

void fApplyGroup(const ST_LOGMODE_EFFECT& l_stMode, ST_TEXT_RANGE l_stModules, ST_TEXT_RANGE l_stComponents) {
  fForEachWord(l_stModules, [&](ST_TEXT_RANGE l_stModuleWord) {
    if (l_stModuleWord.fIs("ALL")) {
      for (int l_nLevel = 0; l_nLevel < 3; ++l_nLevel) {
        *kModuleMasks[l_nLevel] = l_stMode.m_vnAll[l_nLevel];
        *kAllMasks[l_nLevel] = l_stMode.m_vnAll[l_nLevel];
        *kComponentMasks[l_nLevel] = l_stMode.m_vnAll[l_nLevel];
      }
      return;
    }
    for (const ST_LOGMODULE& l_stModule : kModules) {
      if (!l_stModuleWord.fIs(l_stModule.m_pstrWord)) continue;
      fApplyBit(kModuleMasks, l_stMode.m_vnModule, l_stModule.m_nModuleBit);
      fForEachWord(l_stComponents, [&](ST_TEXT_RANGE l_stComponentWord) {
        for (size_t l_nIndx = 0; l_nIndx < l_stModule.m_nComponents; ++l_nIndx) {
          if (l_stComponentWord.fIs(l_stModule.m_pstComponents[l_nIndx].m_pstrWord)) {
            fApplyBit(kComponentMasks, l_stMode.m_vnComponent, l_stModule.m_pstComponents[l_nIndx].m_nBit);
          }
        }
      });
    }
  });
}

const ST_LOGMODE_EFFECT* fFindMode(ST_TEXT_RANGE l_stWord) {
  for (const ST_LOGMODE_EFFECT& l_stMode : kModes) {
    if (l_stWord.fIs(l_stMode.m_pstrWord)) return &l_stMode;
  }
  return nullptr;
}

}  // namespace

int COmniLog::fSetLogModeBit(char* l_pstrLogMode) {
  fSetAll(0);
  if (l_pstrLogMode == nullptr) return -1;
  const char* l_pstrText = l_pstrLogMode;  // read in place, never written
  const char* l_pstrTextEnd = l_pstrText + strlen(l_pstrText);

  if (strchr(l_pstrText, ':') == nullptr) {
    // Single word: a level and everything below it.
    const ST_LOGMODE_EFFECT* l_pstMode = fFindMode(ST_TEXT_RANGE{l_pstrText, l_pstrTextEnd});
    if (l_pstMode != nullptr) {
      for (int l_nLevel = 0; l_nLevel < 3; ++l_nLevel) {
        *kModuleMasks[l_nLevel] = l_pstMode->m_vnAll[l_nLevel];
        *kAllMasks[l_nLevel] = l_pstMode->m_vnAll[l_nLevel];
        *kComponentMasks[l_nLevel] = l_pstMode->m_vnAll[l_nLevel];
      }
    }
    return 1;
  }

  // Groups "MODE:MODULES:COMPONENTS", separated by "|". A group's end is
  // looked for only after its second ":".
  const char* l_pstrGroup = l_pstrText;
  while (l_pstrGroup < l_pstrTextEnd) {
    const char* l_pstrColon1 = strchr(l_pstrGroup, ':');
    if (l_pstrColon1 == nullptr) {
      // A later group without any ":" (such as a text ending in "|ERROR"):
      // reported like an unknown mode, and the parse ends there.
      fprintf(stderr, "UNKNOWN LOG MODE : %s\n", l_pstrGroup);
      return 1;
    }
    if (l_pstrColon1[1] == '\0') {
      fprintf(stderr, "UNKNOWN LOG MODULE 1 : NULL\n");
      return 1;
    }
    const char* l_pstrColon2 = strchr(l_pstrColon1 + 1, ':');
    if (l_pstrColon2 == nullptr || l_pstrColon2[1] == '\0') {
      fprintf(stderr, "UNKNOWN LOG MODULE 2 : NULL\n");
      return 1;
    }
    const char* l_pstrBar = strchr(l_pstrColon2 + 1, '|');
    const char* l_pstrComponentsEnd = (l_pstrBar != nullptr) ? l_pstrBar : l_pstrTextEnd;

    const ST_TEXT_RANGE l_stModeWord{l_pstrGroup, l_pstrColon1};
    const ST_LOGMODE_EFFECT* l_pstMode = fFindMode(l_stModeWord);
    if (l_pstMode == nullptr) {
      fprintf(stderr, "UNKNOWN LOG MODE : %.*s\n", static_cast<int>(l_pstrColon1 - l_pstrGroup), l_pstrGroup);
    } else {
      // Component lists of any length are read whole.
      fApplyGroup(*l_pstMode, ST_TEXT_RANGE{l_pstrColon1 + 1, l_pstrColon2},
                  ST_TEXT_RANGE{l_pstrColon2 + 1, l_pstrComponentsEnd});
    }
    if (l_pstrBar == nullptr) break;
    l_pstrGroup = l_pstrBar + 1;
  }
  return 1;
}
