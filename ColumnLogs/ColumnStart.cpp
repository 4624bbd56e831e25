// Entry of the agent: one argument, the configuration file path. Start-up
// failures end the process with status 0; afterwards it runs until killed.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "AgentStatus.h"
#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "DeferEvents.h"
#include "LogFollower.h"
#include "PositionFile.h"
#include "OmniLog.h"

namespace {

constexpr int CONF_PATH_BUF_SIZE = static_cast<int>(CONF_PATH_MAX) + 1;
constexpr int USAGE_EXIT_STATUS = 2;
const char* const HEARTBEAT_FILE = "./LoggerAlive";
const char* const HELP_TEXT =
    "usage: %s CONFIG_FILE\n"
    "Watches the log files that CONFIG_FILE names and leaves one event line per\n"
    "fired rule in its OUTPUT_PATH (ing_ files, renamed to out_ when a cycle ends).\n"
    "Runs until stopped and re-creates ./LoggerAlive in its working directory every\n"
    "ten seconds.\n"
    "A failed start-up (configuration missing or unreadable, LOG_PATH, LOG_MODE or\n"
    "LOG_VALIDDAY missing) ends it at once with status 0, mostly without a message:\n"
    "check a configuration first with: ColumnTool check CONFIG_FILE\n"
    "  --help     this text\n"
    "  --version  the version\n";

// Removes and re-creates the empty heartbeat file; failures are ignored and
// the next refresh tries again.
void fRefreshHeartbeat() {
  remove(HEARTBEAT_FILE);
  const int l_nFd = fgOpen(HEARTBEAT_FILE, O_RDONLY | O_CREAT, 0444);
  if (l_nFd >= 0) close(l_nFd);
}

// Set by SIGTERM and SIGINT while a status or position file is kept or logs
// are followed: the main loop finishes the running cycle, writes them one
// last time and ends.
// Without those keys the signals keep their default action.
volatile sig_atomic_t g_nStopRequested = 0;
void fOnStopSignal(int) { g_nStopRequested = 1; }
void fCatchStopSignals() {
  struct sigaction l_stAction = {};
  l_stAction.sa_handler = fOnStopSignal;
  sigemptyset(&l_stAction.sa_mask);
  sigaction(SIGTERM, &l_stAction, nullptr);
  sigaction(SIGINT, &l_stAction, nullptr);
}

// The value of an optional path key, or null when it is absent or empty.
const char* fOptionalPath(CConfManager* l_pclConfManager, const char* l_pstrKey) {
  const char* l_pstrPath = l_pclConfManager->fGetOpt(const_cast<char*>(l_pstrKey));
  return l_pstrPath != nullptr && l_pstrPath[0] != '\0' ? l_pstrPath : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  g_nPrint = 0;
  g_pclOmniLog = nullptr;

  const char* l_pstrProgram = (argc > 0 && argv[0] != nullptr) ? argv[0] : "ColumnLogs";
  if (argc < 2 || argv[1] == nullptr || argv[1][0] == '\0') {
    fprintf(stderr, "usage: %s CONFIG_FILE\n", l_pstrProgram);
    return USAGE_EXIT_STATUS;
  }
  // The two options are answered before anything else; a configuration file
  // of either name is still reached as "./--help".
  if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
    printf(HELP_TEXT, l_pstrProgram);
    return 0;
  }
  if (strcmp(argv[1], "--version") == 0) {
    printf("ColumnLogs %s\n", COLUMNLOGS_VERSION);
    return 0;
  }
  const size_t l_nPathLen = strlen(argv[1]);
  if (l_nPathLen >= static_cast<size_t>(CONF_PATH_BUF_SIZE)) {
    fprintf(stderr, "%s: configuration file path too long (%zu characters, at most %d)\n", l_pstrProgram,
            l_nPathLen, CONF_PATH_BUF_SIZE - 1);
    return USAGE_EXIT_STATUS;
  }
  char l_strConfPath[CONF_PATH_BUF_SIZE] = {0};
  memcpy(l_strConfPath, argv[1], l_nPathLen);

  // The gatherer lives for the whole process; a failed start-up releases it
  // (and the logger) on the way out.
  std::unique_ptr<CColumnLogger> l_pclLogger(new (std::nothrow) CColumnLogger());
  if (!l_pclLogger) {
    fprintf(stderr, "%s: out of memory at start-up\n", l_pstrProgram);
    return 0;
  }
  l_pclLogger->fSetConfManager(l_strConfPath);
  if (fMakeOmniLog(l_pclLogger->m_pclConfManager) < 1 || l_pclLogger->fLoadConfInfo() < 1) {
    delete g_pclOmniLog;
    g_pclOmniLog = nullptr;
    return 0;
  }

  // STATUS_FILE and POSITION_FILE, kept only when their keys are set.
  CConfManager* const l_pclConf = l_pclLogger->m_pclConfManager;
  const char* const l_pstrStatusPath = fOptionalPath(l_pclConf, KEY_STATUS_FILE);
  const char* const l_pstrPositionPath = fOptionalPath(l_pclConf, KEY_POSITION_FILE);
  std::unique_ptr<CAgentStatus> l_pclStatus;
  if (l_pstrStatusPath != nullptr) l_pclStatus.reset(new (std::nothrow) CAgentStatus(l_pstrStatusPath, time(nullptr)));
  // FOLLOW_ROTATION; the position file hands rotated files to the follower too.
  const char* const l_pstrFollow = l_pclConf->fGetOpt(const_cast<char*>(KEY_FOLLOW_ROTATION));
  const bool l_bFollow = l_pstrFollow != nullptr && strcmp(l_pstrFollow, FOLLOW_ROTATION_ON) == 0;
  std::unique_ptr<CLogFollower> l_pclFollower;
  if (l_bFollow || l_pstrPositionPath != nullptr) l_pclFollower.reset(new (std::nothrow) CLogFollower(l_bFollow));
  std::unique_ptr<CPositionFile> l_pclPositions;
  if (l_pstrPositionPath != nullptr && l_pclFollower)
    l_pclPositions.reset(new (std::nothrow) CPositionFile(l_pstrPositionPath, *l_pclFollower));
  if (l_pclPositions) l_pclPositions->fRestore(*l_pclLogger);
  g_pclLogFollower = l_pclFollower.get();
  if (l_pclStatus || l_pclPositions || l_bFollow) fCatchStopSignals();
  const char* l_pstrDefer = l_pclLogger->m_pclConfManager->fGetOpt(const_cast<char*>(KEY_DEFER_EVENTS));
  g_bDeferEvents = l_pstrDefer != nullptr && strcmp(l_pstrDefer, DEFER_EVENTS_ON) == 0;
  g_pclAgentStatus = l_pclStatus.get();

  time_t l_tLastGather = 0;
  time_t l_tLastHeartbeat = 0;
  for (;;) {
    const time_t l_tGatherClock = time(nullptr);
    if (l_tGatherClock > l_tLastGather) {
      l_pclLogger->fLogGather();
      l_tLastGather = l_tGatherClock;
      if (l_pclPositions) l_pclPositions->fSave(*l_pclLogger);
    }
    const time_t l_tBeatClock = time(nullptr);
    if (l_tBeatClock - l_tLastHeartbeat > HEARTBEAT_SECONDS) {
      fRefreshHeartbeat();
      l_tLastHeartbeat = l_tBeatClock;
    }
    if (l_pclStatus != nullptr && (g_nStopRequested != 0 || l_pclStatus->fDue(l_tBeatClock))) {
      l_pclStatus->fWrite(*l_pclLogger, l_tBeatClock, g_nStopRequested != 0);
    }
    if (g_nStopRequested != 0) {
      if (l_pclPositions) l_pclPositions->fSave(*l_pclLogger, true);
      break;
    }
    fgUSleep(MAIN_LOOP_USEC);
  }
  fgLogRecord(LOG_GRADE_INFO, LOG_CODE_GATHER, "stop requested:%s%s agent ends",
              l_pclStatus ? " status file written," : "", l_pclPositions ? " positions saved," : "");
  g_pclAgentStatus = nullptr;
  g_pclLogFollower = nullptr;
  delete g_pclOmniLog;
  g_pclOmniLog = nullptr;
  return 0;
}
