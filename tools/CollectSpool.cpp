#include "CollectSpool.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "CommonConst.h"

bool fgIsEventFileName(const std::string& l_strName) {
  static const char FORM[] = "xxxx99999999-999999";
  if (l_strName.size() != sizeof(FORM) - 1) return false;
  if (l_strName.compare(0, 4, "out_") != 0 && l_strName.compare(0, 4, "ing_") != 0) return false;
  for (size_t l_nAt = 4; l_nAt < l_strName.size(); ++l_nAt) {
    const bool l_bDigit = l_strName[l_nAt] >= '0' && l_strName[l_nAt] <= '9';
    if (FORM[l_nAt] == '9' ? !l_bDigit : l_strName[l_nAt] != FORM[l_nAt]) return false;
  }
  return true;
}

ST_SPOOL_PLAN fgPlanSpool(const std::vector<ST_SPOOL_ENTRY>& l_vstEntries, time_t l_tNow) {
  ST_SPOOL_PLAN l_stPlan;
  std::vector<const ST_SPOOL_ENTRY*> l_vpstEvents;
  std::string l_strLatest;  // the latest cycle time among the event files
  for (const ST_SPOOL_ENTRY& l_stEntry : l_vstEntries) {
    if (!l_stEntry.m_bRegular || !fgIsEventFileName(l_stEntry.m_strName)) {
      ++l_stPlan.m_nForeign;
      continue;
    }
    l_vpstEvents.push_back(&l_stEntry);
    l_strLatest = std::max(l_strLatest, l_stEntry.m_strName.substr(4));
  }
  // Time order; "out_" before "ing_" within one second.
  std::sort(l_vpstEvents.begin(), l_vpstEvents.end(), [](const ST_SPOOL_ENTRY* l_pstA, const ST_SPOOL_ENTRY* l_pstB) {
    const int l_nTime = l_pstA->m_strName.compare(4, std::string::npos, l_pstB->m_strName, 4, std::string::npos);
    if (l_nTime != 0) return l_nTime < 0;
    return l_pstA->m_strName[0] == 'o' && l_pstB->m_strName[0] == 'i';
  });
  for (const ST_SPOOL_ENTRY* l_pstEntry : l_vpstEvents) {
    const bool l_bIng = l_pstEntry->m_strName[0] == 'i';
    const time_t l_tDue = l_pstEntry->m_tModified + ING_QUIET_SECONDS;
    if (l_bIng && l_pstEntry->m_strName.substr(4) == l_strLatest && l_tNow < l_tDue) {
      ++l_stPlan.m_nWaiting;
      if (l_stPlan.m_tRecheck == 0 || l_tDue < l_stPlan.m_tRecheck) l_stPlan.m_tRecheck = l_tDue;
      continue;
    }
    l_stPlan.m_vstrTake.push_back(l_pstEntry->m_strName);
  }
  return l_stPlan;
}

int fgListSpool(const std::string& l_strDir, std::vector<ST_SPOOL_ENTRY>* l_pvstEntries) {
  l_pvstEntries->clear();
  std::unique_ptr<DIR, int (*)(DIR*)> l_pstDir(opendir(l_strDir.c_str()), closedir);
  if (l_pstDir == nullptr) return RESULT_FAIL;
  while (const dirent* l_pstEntry = readdir(l_pstDir.get())) {
    ST_SPOOL_ENTRY l_stEntry;
    l_stEntry.m_strName = l_pstEntry->d_name;
    if (l_stEntry.m_strName == "." || l_stEntry.m_strName == "..") continue;
    struct stat l_stStat;
    if (lstat((l_strDir + l_stEntry.m_strName).c_str(), &l_stStat) != 0) continue;  // taken meanwhile
    l_stEntry.m_bRegular = S_ISREG(l_stStat.st_mode);
    l_stEntry.m_tModified = l_stStat.st_mtime;
    l_pvstEntries->push_back(l_stEntry);
  }
  return RESULT_OK;
}
