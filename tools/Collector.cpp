#include "Collector.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "AgentStatus.h"
#include "ColumnTool.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfManager.h"
#include "ConfVocabulary.h"

namespace {

volatile sig_atomic_t g_nCollectStop = 0;

void fStopHandler(int) { g_nCollectStop = 1; }

// SIGTERM and SIGINT stay blocked except while the collector waits (ppoll),
// so a signal never cuts a delivery short and never slips in before a wait.
sigset_t fInstallSignals() {
  struct sigaction l_stAction = {};
  l_stAction.sa_handler = fStopHandler;
  l_stAction.sa_flags = SA_RESTART;
  sigemptyset(&l_stAction.sa_mask);
  sigaction(SIGTERM, &l_stAction, nullptr);
  sigaction(SIGINT, &l_stAction, nullptr);
  signal(SIGPIPE, SIG_IGN);
  sigset_t l_stBlock;
  sigset_t l_stOld;
  sigemptyset(&l_stBlock);
  sigaddset(&l_stBlock, SIGTERM);
  sigaddset(&l_stBlock, SIGINT);
  sigprocmask(SIG_BLOCK, &l_stBlock, &l_stOld);
  sigdelset(&l_stOld, SIGTERM);
  sigdelset(&l_stOld, SIGINT);
  return l_stOld;
}

sigset_t g_stWaitMask;

// A stop signal waits, blocked, until the next pause; between two files the
// collector looks whether one is pending.
bool fStopRequested() {
  sigset_t l_stPending;
  if (!g_nCollectStop && sigpending(&l_stPending) == 0 &&
      (sigismember(&l_stPending, SIGTERM) == 1 || sigismember(&l_stPending, SIGINT) == 1)) {
    g_nCollectStop = 1;
  }
  return g_nCollectStop != 0;
}

// Reads straight into the string, which grows when the file is longer than it said.
bool fReadWhole(int l_nFd, std::string* l_pstrText) {
  struct stat l_stStat;
  size_t l_nSize = fstat(l_nFd, &l_stStat) == 0 ? static_cast<size_t>(l_stStat.st_size) : 0;
  size_t l_nDone = 0;
  for (;;) {
    if (l_pstrText->size() < l_nSize + 4096) l_pstrText->resize(l_nSize + 65536);
    const ssize_t l_nRead = read(l_nFd, &(*l_pstrText)[l_nDone], l_pstrText->size() - l_nDone);
    if (l_nRead < 0 && errno == EINTR) continue;
    if (l_nRead <= 0) {
      l_pstrText->resize(l_nDone);
      return l_nRead == 0;
    }
    l_nDone += static_cast<size_t>(l_nRead);
    l_nSize = std::max(l_nSize, l_nDone);
  }
}

}  // namespace

CCollector::CCollector(const std::string& l_strDir, std::unique_ptr<CCollectTarget> l_pclTarget,
                       const std::string& l_strTo)
    : m_strDir(l_strDir), m_strTo(l_strTo), m_pclTarget(std::move(l_pclTarget)) {
  char l_strHost[256] = {0};
  if (gethostname(l_strHost, sizeof(l_strHost) - 1) != 0) l_strHost[0] = '\0';
  m_strHost = l_strHost;
}

CCollector::~CCollector() {
  if (m_nInotify >= 0) close(m_nInotify);
}

void CCollector::fNote(const char* l_pstrFormat, ...) {
  va_list l_vaArgs;
  va_start(l_vaArgs, l_pstrFormat);
  fprintf(stderr, "ColumnTool collect: ");
  vfprintf(stderr, l_pstrFormat, l_vaArgs);
  fprintf(stderr, "\n");
  va_end(l_vaArgs);
  fflush(stderr);
}

void CCollector::fWatch() {
  if (m_nInotify < 0) m_nInotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (m_nInotify < 0) return;
  m_nWatch = inotify_add_watch(m_nInotify, m_strDir.c_str(),
                               IN_MOVED_TO | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
}

// Waits up to `l_nSeconds`, less when the directory changes or a stop
// signal comes. Without a watch it looks again after one second.
void CCollector::fWait(int l_nSeconds) {
  if (g_nCollectStop) return;
  const bool l_bWatching = m_nInotify >= 0 && m_nWatch >= 0;
  const timespec l_stTimeout = {l_bWatching ? std::max(l_nSeconds, 1) : 1, 0};
  pollfd l_stPoll = {m_nInotify, POLLIN, 0};
  const int l_nReady = ppoll(&l_stPoll, l_bWatching ? 1 : 0, &l_stTimeout, &g_stWaitMask);
  if (l_nReady <= 0 || !l_bWatching) return;
  alignas(inotify_event) char l_strEvents[4096];
  bool l_bWatchGone = false;
  ssize_t l_nRead = 0;
  while ((l_nRead = read(m_nInotify, l_strEvents, sizeof(l_strEvents))) > 0) {
    for (ssize_t l_nAt = 0; l_nAt < l_nRead;) {
      const inotify_event* l_pstEvent = reinterpret_cast<const inotify_event*>(l_strEvents + l_nAt);
      if ((l_pstEvent->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) != 0) l_bWatchGone = true;
      l_nAt += static_cast<ssize_t>(sizeof(inotify_event) + l_pstEvent->len);
    }
  }
  if (l_bWatchGone) {
    inotify_rm_watch(m_nInotify, m_nWatch);
    m_nWatch = -1;
  }
}

int CCollector::fKeepRest(const std::string& l_strName, const std::string& l_strText, size_t l_nRestAt) {
  const std::string l_strTemp = m_strDir + ".collect_rest_" + std::to_string(getpid());
  const int l_nFd = fgOpen(l_strTemp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (l_nFd < 0) return RESULT_FAIL;
  size_t l_nDone = l_nRestAt;
  while (l_nDone < l_strText.size()) {
    const ssize_t l_nWritten = write(l_nFd, l_strText.data() + l_nDone, l_strText.size() - l_nDone);
    if (l_nWritten < 0 && errno == EINTR) continue;
    if (l_nWritten <= 0) break;
    l_nDone += static_cast<size_t>(l_nWritten);
  }
  const bool l_bWritten = l_nDone == l_strText.size() && fsync(l_nFd) == 0;
  close(l_nFd);
  if (!l_bWritten || rename(l_strTemp.c_str(), (m_strDir + l_strName).c_str()) != 0) {
    unlink(l_strTemp.c_str());
    return RESULT_FAIL;
  }
  return RESULT_OK;
}

// 1 delivered and removed, 0 gone or unreadable (kept), -1 destination failed.
int CCollector::fCollectFile(const std::string& l_strName) {
  const std::string l_strPath = m_strDir + l_strName;
  if (std::find(m_vstrStuck.begin(), m_vstrStuck.end(), l_strName) != m_vstrStuck.end()) return RESULT_REFUSED;
  const int l_nFd = fgOpen(l_strPath.c_str(), O_RDONLY | O_NOFOLLOW, 0);
  std::string& l_strText = m_strText;
  l_strText.clear();
  const bool l_bRead = l_nFd >= 0 && fReadWhole(l_nFd, &l_strText);
  const int l_nErrno = errno;
  if (l_nFd >= 0) close(l_nFd);
  if (!l_bRead) {
    if (l_nErrno == ENOENT) return RESULT_REFUSED;
    if (std::find(m_vstrUnreadable.begin(), m_vstrUnreadable.end(), l_strName) == m_vstrUnreadable.end()) {
      m_vstrUnreadable.push_back(l_strName);
      fNote("cannot read %s, left in place : %s", l_strPath.c_str(), strerror(l_nErrno));
    }
    return RESULT_REFUSED;
  }

  ST_COLLECT_ORIGIN l_stOrigin;
  l_stOrigin.m_strHost = m_strHost;
  l_stOrigin.m_strFile = l_strName;
  l_stOrigin.m_nPid = static_cast<int>(getpid());
  if (fgEventFileTime(l_strName, &l_stOrigin.m_tTime) != 1) l_stOrigin.m_tTime = time(nullptr);
  l_stOrigin.m_strTime = fgTimeRfc3339(l_stOrigin.m_tTime);
  std::vector<std::string> l_vstrRecords;
  std::vector<size_t> l_vnLineAt;  // where each line starts in the file
  long l_lUnparsed = 0;
  ST_COLLECT_EVENT l_stEvent;
  for (size_t l_nAt = 0; l_nAt < l_strText.size();) {
    size_t l_nEnd = l_strText.find('\n', l_nAt);
    l_nEnd = l_nEnd == std::string::npos ? l_strText.size() : l_nEnd + 1;
    if (fgParseEventLine(l_strText.data() + l_nAt, l_nEnd - l_nAt, &l_stEvent) != RESULT_OK) ++l_lUnparsed;
    l_vstrRecords.push_back(m_pclTarget->fFormat(l_stEvent, l_stOrigin));
    l_vnLineAt.push_back(l_nAt);
    l_nAt = l_nEnd;
  }

  size_t l_nDone = 0;
  if (!l_vstrRecords.empty() && m_pclTarget->fDeliver(l_vstrRecords, &l_nDone) != RESULT_OK) {
    if (l_nDone > 0 && l_nDone < l_vnLineAt.size()) fKeepRest(l_strName, l_strText, l_vnLineAt[l_nDone]);
    m_stCounts.m_lEvents += static_cast<long>(l_nDone);
    return RESULT_FAIL;
  }
  if (unlink(l_strPath.c_str()) != 0 && errno != ENOENT) {
    // Delivered but not removable: never delivered again by this run.
    fNote("cannot remove %s after delivering it, left in place : %s", l_strPath.c_str(), strerror(errno));
    m_vstrStuck.push_back(l_strName);
  }
  m_stCounts.m_lFiles += 1;
  m_stCounts.m_lEvents += static_cast<long>(l_vstrRecords.size());
  m_stCounts.m_lUnparsed += l_lUnparsed;
  return RESULT_OK;
}

int CCollector::fCollectOnce() {
  std::vector<ST_SPOOL_ENTRY> l_vstEntries;
  if (fgListSpool(m_strDir, &l_vstEntries) != RESULT_OK) {
    if (!m_bSpoolGone) fNote("cannot list %s, waiting for it : %s", m_strDir.c_str(), strerror(errno));
    m_bSpoolGone = true;
    return RESULT_REFUSED;
  }
  if (m_bSpoolGone || m_nWatch < 0) {
    if (m_bSpoolGone) fNote("%s can be listed again", m_strDir.c_str());
    m_bSpoolGone = false;
    fWatch();
  }
  const time_t l_tNow = time(nullptr);
  const ST_SPOOL_PLAN l_stPlan = fgPlanSpool(l_vstEntries, l_tNow);
  if (l_stPlan.m_nForeign != m_nForeign) {
    fNote("%d other entr%s in %s left alone (they count toward the agent's limit of %d entries)",
          l_stPlan.m_nForeign, l_stPlan.m_nForeign == 1 ? "y" : "ies", m_strDir.c_str(), OUTPUT_BACKLOG_LIMIT);
    m_nForeign = l_stPlan.m_nForeign;
  }
  m_tRecheck = l_stPlan.m_tRecheck;
  m_nWaiting = l_stPlan.m_vstrTake.size();
  m_tOldestWaiting = 0;
  struct stat l_stOldest;
  if (m_nWaiting > 0 && stat((m_strDir + l_stPlan.m_vstrTake[0]).c_str(), &l_stOldest) == 0)
    m_tOldestWaiting = l_stOldest.st_mtime;
  for (size_t l_nFile = 0; l_nFile < l_stPlan.m_vstrTake.size() && !fStopRequested(); ++l_nFile) {
    if (fCollectFile(l_stPlan.m_vstrTake[l_nFile]) != RESULT_FAIL) {
      --m_nWaiting;
      continue;
    }
    ++m_stCounts.m_lRetries;
    if (!m_bDown) {
      fNote("destination %s is down, %zu event file%s kept, retrying : %s", m_strTo.c_str(),
            l_stPlan.m_vstrTake.size() - l_nFile, l_stPlan.m_vstrTake.size() - l_nFile == 1 ? "" : "s",
            m_pclTarget->fError().c_str());
      m_bDown = true;
      m_tDownSince = l_tNow;
    }
    return RESULT_FAIL;
  }
  if (m_bDown && !l_stPlan.m_vstrTake.empty()) {
    fNote("destination %s is back after %lds", m_strTo.c_str(), static_cast<long>(time(nullptr) - m_tDownSince));
    m_bDown = false;
  }
  return RESULT_OK;
}

int CCollector::fWriteStatus(time_t l_tNow) {
  m_tStatusWritten = l_tNow;
  std::string l_strOut;
  const auto l_fMetric = [&](const char* l_pstrName, const char* l_pstrType, const char* l_pstrHelp,
                             const std::string& l_strLabels, long long l_llValue) {
    l_strOut += std::string("# HELP ") + l_pstrName + " " + l_pstrHelp + "\n# TYPE " + l_pstrName + " " + l_pstrType +
                "\n" + l_pstrName + l_strLabels + " " + std::to_string(l_llValue) + "\n";
  };
  l_fMetric("columnlogs_collect_events_total", "counter", "Event lines delivered.", "", m_stCounts.m_lEvents);
  l_fMetric("columnlogs_collect_unparsed_total", "counter", "Of them, lines delivered whole, marked unparsed.", "",
            m_stCounts.m_lUnparsed);
  l_fMetric("columnlogs_collect_files_total", "counter", "Event files delivered and removed.", "", m_stCounts.m_lFiles);
  l_fMetric("columnlogs_collect_retries_total", "counter", "Tries that found the destination down.", "",
            m_stCounts.m_lRetries);
  l_fMetric("columnlogs_collect_destination_up", "gauge", "1 while the destination takes events, 0 while it is down.",
            "{to=\"" + fgPromLabelValue(m_strTo) + "\"}", m_bDown ? 0 : 1);
  l_fMetric("columnlogs_collect_waiting_files", "gauge", "Event files waiting to be delivered at the last look.", "",
            static_cast<long long>(m_nWaiting));
  l_fMetric("columnlogs_collect_oldest_waiting_seconds", "gauge", "Age of the oldest waiting event file (0: none).", "",
            m_nWaiting > 0 && m_tOldestWaiting > 0 ? static_cast<long long>(l_tNow - m_tOldestWaiting) : 0);
  l_fMetric("columnlogs_collect_status_time_seconds", "gauge", "Time this file was written.", "",
            static_cast<long long>(l_tNow));
  if (fgReplaceStatusFile(m_strStatusFile, l_strOut) != RESULT_OK) {
    if (!m_bStatusFailing) fNote("cannot write the status file %s : %s", m_strStatusFile.c_str(), strerror(errno));
    m_bStatusFailing = true;
    return RESULT_FAIL;
  }
  if (m_bStatusFailing) fNote("status file %s written again", m_strStatusFile.c_str());
  m_bStatusFailing = false;
  return RESULT_OK;
}

int CCollector::fRun() {
  g_nCollectStop = 0;
  g_stWaitMask = fInstallSignals();
  fWatch();
  fNote("collecting %s to %s%s", m_strDir.c_str(), m_strTo.c_str(),
        m_nWatch >= 0 ? "" : " (no inotify watch: looking every second)");
  while (!g_nCollectStop) {
    const int l_nResult = fCollectOnce();
    if (!m_strStatusFile.empty() && time(nullptr) - m_tStatusWritten >= COLLECT_STATUS_SECONDS)
      fWriteStatus(time(nullptr));
    if (g_nCollectStop) break;
    if (l_nResult != RESULT_OK) {
      fWait(m_nRetrySeconds);
      m_nRetrySeconds = std::min(m_nRetrySeconds * 2, COLLECT_RETRY_MAX_SECONDS);
      continue;
    }
    m_nRetrySeconds = 1;
    int l_nTimeout = m_strStatusFile.empty() ? COLLECT_RESCAN_SECONDS : COLLECT_STATUS_SECONDS;
    if (m_tRecheck != 0) {
      l_nTimeout = static_cast<int>(std::min<time_t>(l_nTimeout, std::max<time_t>(m_tRecheck - time(nullptr), 0) + 1));
    }
    fWait(l_nTimeout);
  }
  if (!m_strStatusFile.empty()) fWriteStatus(time(nullptr));
  fNote("stopped: %ld file%s, %ld event%s delivered (%ld unparsed)", m_stCounts.m_lFiles,
        m_stCounts.m_lFiles == 1 ? "" : "s", m_stCounts.m_lEvents, m_stCounts.m_lEvents == 1 ? "" : "s",
        m_stCounts.m_lUnparsed);
  return TOOL_EXIT_OK;
}

int fgToolCollect(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: ColumnTool collect CONFIG\n");
    return TOOL_EXIT_USAGE;
  }
  CConfManager l_clStore;
  char l_strPath[CConfManager::FILE_NAME_SIZE] = {0};
  if (fgStrCopy(l_strPath, sizeof(l_strPath), argv[1]) != 1 || l_clStore.fFileInfoSet(l_strPath, nullptr) != 1) {
    fprintf(stderr, "ColumnTool collect: cannot read [%s] (missing, unreadable, or its lock file %s_lock cannot be "
                    "created beside it)\n",
            argv[1], argv[1]);
    return TOOL_EXIT_USAGE;
  }
  const char* l_pstrDir = l_clStore.fGetOpt(const_cast<char*>("OUTPUT_PATH"));
  const char* l_pstrTo = l_clStore.fGetOpt(const_cast<char*>(COLLECT_TO_KEY));
  const std::string l_strTo = l_pstrTo != nullptr ? l_pstrTo : COLLECT_TO_DEFAULT;
  if (l_pstrDir == nullptr || l_pstrDir[0] == '\0' || l_pstrDir[strlen(l_pstrDir) - 1] != '/') {
    fprintf(stderr, "ColumnTool collect: OUTPUT_PATH in [%s] is %s: it must name the event directory, ending with "
                    "\"/\"\n",
            argv[1], l_pstrDir == nullptr ? "missing" : "not a directory path");
    return TOOL_EXIT_USAGE;
  }
  ST_COLLECT_TO l_stTo;
  std::string l_strReason;
  if (fgParseCollectTo(l_strTo, &l_stTo, &l_strReason) != RESULT_OK) {
    fprintf(stderr, "ColumnTool collect: %s [%s] in [%s] : %s\n", COLLECT_TO_KEY, fgShowText(l_strTo).c_str(),
            argv[1], l_strReason.c_str());
    return TOOL_EXIT_USAGE;
  }
  std::unique_ptr<CCollectTarget> l_pclTarget(new (std::nothrow) CCollectTarget(l_stTo));
  if (l_pclTarget == nullptr) {
    fprintf(stderr, "ColumnTool collect: out of memory\n");
    return TOOL_EXIT_PROBLEMS;
  }
  CCollector l_clCollector(l_pstrDir, std::move(l_pclTarget), l_strTo);
  const char* l_pstrStatus = l_clStore.fGetOpt(const_cast<char*>(KEY_STATUS_FILE));
  if (l_pstrStatus != nullptr && l_pstrStatus[0] != '\0') l_clCollector.fSetStatusFile(fgCollectStatusPath(l_pstrStatus));
  return l_clCollector.fRun();
}
