// Entry of the agent: one argument, the configuration file path. Start-up
// failures end the process with status 0; afterwards it runs until killed.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "ConfVocabulary.h"
#include "OmniLog.h"

namespace {

constexpr int CONF_PATH_BUF_SIZE = static_cast<int>(CONF_PATH_MAX) + 1;
constexpr int USAGE_EXIT_STATUS = 2;
const char* const HEARTBEAT_FILE = "./LoggerAlive";

// Removes and re-creates the empty heartbeat file; failures are ignored and
// the next refresh tries again.
void fRefreshHeartbeat() {
  remove(HEARTBEAT_FILE);
  const int l_nFd = fgOpen(HEARTBEAT_FILE, O_RDONLY | O_CREAT, 0444);
  if (l_nFd >= 0) close(l_nFd);
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

  time_t l_tLastGather = 0;
  time_t l_tLastHeartbeat = 0;
  for (;;) {
    const time_t l_tGatherClock = time(nullptr);
    if (l_tGatherClock > l_tLastGather) {
      l_pclLogger->fLogGather();
      l_tLastGather = l_tGatherClock;
    }
    const time_t l_tBeatClock = time(nullptr);
    if (l_tBeatClock - l_tLastHeartbeat > HEARTBEAT_SECONDS) {
      fRefreshHeartbeat();
      l_tLastHeartbeat = l_tBeatClock;
    }
    fgUSleep(MAIN_LOOP_USEC);
  }
}
