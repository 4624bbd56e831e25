// ColumnTool: entry, the configuration loader shared by check and replay,
// the notation filters encode / decode and the event directory listing.
#include "ColumnTool.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "CollectEvent.h"
#include "Collector.h"
#include "ColumnLogger.h"
#include "CommonConst.h"
#include "CommonFunc.h"
#include "Holders.h"
#include "Notation.h"
#include "OmniLog.h"

namespace {

const char* const USAGE =
    "usage: ColumnTool SUBCOMMAND ...\n"
    "  check [--start] CONFIG            load CONFIG as the agent does and report every entry\n"
    "                                    (--start: fail only when the agent would end at start-up\n"
    "                                    or watch no entry; for a service's start)\n"
    "  replay [--raw] [--all] CONFIG LOGFILE [ENTRY]\n"
    "                                    run the entries' line filter and rules over LOGFILE once\n"
    "  encode [IN [OUT]]                 readable {~} / {|} notation -> separator bytes\n"
    "  decode [IN [OUT]]                 separator bytes -> readable notation\n"
    "  events [--raw] DIR                the waiting out_ event files of DIR, oldest first\n"
    "  collect CONFIG                    deliver the event files of CONFIG's OUTPUT_PATH to its COLLECT_TO\n"
    "                                    and remove them (runs until SIGTERM)\n"
    "  status [CONFIG]                   the running agent's status file (STATUS_FILE) as a table with\n"
    "                                    warnings; status 1 while a warning stands\n"
    "  --version                         the version\n"
    "IN and OUT default to standard input and output (\"-\" names them too); encode drops\n"
    "the carriage returns of CRLF line ends.\n";

// Reads a whole stream; false on a read error.
bool fReadAll(FILE* l_pstFd, std::string* l_pstrOut) {
  char l_strBuf[65536];
  size_t l_nRead = 0;
  while ((l_nRead = fread(l_strBuf, 1, sizeof(l_strBuf), l_pstFd)) > 0) l_pstrOut->append(l_strBuf, l_nRead);
  return ferror(l_pstFd) == 0;
}

bool fWriteAll(FILE* l_pstFd, const std::string& l_strText) {
  return fwrite(l_strText.data(), 1, l_strText.size(), l_pstFd) == l_strText.size() && fflush(l_pstFd) == 0;
}

// Redirects standard error into a temporary file for the life of the object
// and hands back what was written.
class StderrCapture {
 public:
  StderrCapture() {
    fflush(stderr);
    m_pstFile = tmpfile();
    m_nSaved = dup(STDERR_FILENO);
    if (m_pstFile != nullptr && m_nSaved >= 0) m_bActive = dup2(fileno(m_pstFile), STDERR_FILENO) >= 0;
  }
  ~StderrCapture() {
    Finish();
    if (m_pstFile != nullptr) fclose(m_pstFile);
  }
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  // Restores standard error and returns what was captured.
  std::string Finish() {
    std::string l_strText;
    if (m_nSaved >= 0) {
      fflush(stderr);
      dup2(m_nSaved, STDERR_FILENO);
      close(m_nSaved);
      m_nSaved = -1;
    }
    if (m_bActive && m_pstFile != nullptr) {
      rewind(m_pstFile);
      fReadAll(m_pstFile, &l_strText);
      m_bActive = false;
    }
    return l_strText;
  }

 private:
  FILE* m_pstFile = nullptr;
  int m_nSaved = -1;
  bool m_bActive = false;
};

// Opens IN ("-" or absent: standard input) and OUT ("-" or absent: standard output).
int fgToolFilter(int argc, char** argv, std::string (*fConvert)(const std::string&)) {
  if (argc > 3) {
    fprintf(stderr, "%s", USAGE);
    return TOOL_EXIT_USAGE;
  }
  const char* l_pstrIn = argc > 1 ? argv[1] : "-";
  const char* l_pstrOut = argc > 2 ? argv[2] : "-";
  FileHandle l_pstIn(strcmp(l_pstrIn, "-") == 0 ? nullptr : fopen(l_pstrIn, "rbe"));
  if (strcmp(l_pstrIn, "-") != 0 && l_pstIn == nullptr) {
    fprintf(stderr, "ColumnTool %s: cannot open [%s] : %s\n", argv[0], l_pstrIn, strerror(errno));
    return TOOL_EXIT_USAGE;
  }
  std::string l_strText;
  if (!fReadAll(l_pstIn != nullptr ? l_pstIn.get() : stdin, &l_strText)) {
    fprintf(stderr, "ColumnTool %s: cannot read [%s]\n", argv[0], l_pstrIn);
    return TOOL_EXIT_PROBLEMS;
  }
  const std::string l_strResult = fConvert(l_strText);
  if (strcmp(l_pstrOut, "-") == 0) return fWriteAll(stdout, l_strResult) ? TOOL_EXIT_OK : TOOL_EXIT_PROBLEMS;
  // The whole input has been read, so OUT may name the same file as IN.
  FileHandle l_pstOut(fopen(l_pstrOut, "wbe"));
  if (l_pstOut == nullptr) {
    fprintf(stderr, "ColumnTool %s: cannot write [%s] : %s\n", argv[0], l_pstrOut, strerror(errno));
    return TOOL_EXIT_PROBLEMS;
  }
  const bool l_bWritten = fWriteAll(l_pstOut.get(), l_strResult);
  if (fclose(l_pstOut.release()) != 0 || !l_bWritten) {
    fprintf(stderr, "ColumnTool %s: cannot write [%s] : %s\n", argv[0], l_pstrOut, strerror(errno));
    return TOOL_EXIT_PROBLEMS;
  }
  return TOOL_EXIT_OK;
}

}  // namespace

ST_TOOL_LOAD fgToolLoad(CColumnLogger& l_clLogger, const char* l_pstrPath) {
  ST_TOOL_LOAD l_stLoad;
  g_nPrint = 0;
  g_pclOmniLog = nullptr;
  StderrCapture l_clCapture;
  char l_strPath[CConfManager::FILE_NAME_SIZE] = {0};
  fgStrCopy(l_strPath, sizeof(l_strPath), l_pstrPath);
  l_stLoad.m_nStoreResult = l_clLogger.fSetConfManager(l_strPath);
  if (l_clLogger.m_pclConfManager != nullptr) l_stLoad.m_nLoadResult = l_clLogger.fLoadConfInfo();
  l_stLoad.m_strStderr = l_clCapture.Finish();
  return l_stLoad;
}

std::string fgShowText(const std::string& l_strText) {
  const std::string l_strReadable = fgDecodeSeparators(l_strText);
  std::string l_strOut;
  for (const char l_chChar : l_strReadable) {
    const unsigned char l_uchChar = static_cast<unsigned char>(l_chChar);
    if (l_chChar == '\r') {
      l_strOut += "\\r";
    } else if (l_chChar == '\t') {
      l_strOut += "\\t";
    } else if (l_uchChar < 0x20 || l_uchChar == 0x7F) {
      char l_strHex[8];
      snprintf(l_strHex, sizeof(l_strHex), "\\x%02X", l_uchChar);
      l_strOut += l_strHex;
    } else {
      l_strOut += l_chChar;
    }
  }
  return l_strOut;
}

int fgToolEncode(int argc, char** argv, bool l_bEncode) {
  // A configuration saved with CRLF line ends would keep a carriage return at
  // the end of every value: encoding drops them.
  const auto l_fEncode = [](const std::string& l_strText) { return fgEncodeSeparators(fgDropLineEndReturns(l_strText)); };
  if (l_bEncode) return fgToolFilter(argc, argv, l_fEncode);
  return fgToolFilter(argc, argv, fgDecodeSeparators);
}

// The hand-off names carry the cycle's start time after a fixed prefix, so
// name order is time order.
int fgToolEvents(int argc, char** argv) {
  bool l_bRaw = false;
  std::vector<const char*> l_vpstrArgs;
  for (int l_nArg = 1; l_nArg < argc; ++l_nArg) {
    if (strcmp(argv[l_nArg], "--raw") == 0) {
      l_bRaw = true;
    } else {
      l_vpstrArgs.push_back(argv[l_nArg]);
    }
  }
  if (l_vpstrArgs.size() != 1) {
    fprintf(stderr, "%s", USAGE);
    return TOOL_EXIT_USAGE;
  }
  std::string l_strDir = l_vpstrArgs[0];
  if (l_strDir.empty() || l_strDir.back() != '/') l_strDir += '/';

  std::unique_ptr<DIR, int (*)(DIR*)> l_pstDir(opendir(l_strDir.c_str()), closedir);
  if (l_pstDir == nullptr) {
    fprintf(stderr, "ColumnTool events: cannot list [%s] : %s\n", l_strDir.c_str(), strerror(errno));
    return TOOL_EXIT_USAGE;
  }
  std::vector<std::string> l_vstrOut;
  std::vector<std::string> l_vstrIng;
  while (const dirent* l_pstEntry = readdir(l_pstDir.get())) {
    const std::string l_strName = l_pstEntry->d_name;
    if (l_strName.rfind("out_", 0) == 0) l_vstrOut.push_back(l_strName);
    if (l_strName.rfind("ing_", 0) == 0) l_vstrIng.push_back(l_strName);
  }
  l_pstDir.reset();
  std::sort(l_vstrOut.begin(), l_vstrOut.end());
  std::sort(l_vstrIng.begin(), l_vstrIng.end());

  long l_lEvents = 0;
  long l_lUnparsed = 0;  // lines the collector would deliver unparsed
  for (const std::string& l_strName : l_vstrOut) {
    FileHandle l_pstFd(fopen((l_strDir + l_strName).c_str(), "rbe"));
    std::string l_strText;
    if (l_pstFd == nullptr || !fReadAll(l_pstFd.get(), &l_strText)) {
      // Taken by the collector between the listing and the read.
      fprintf(stderr, "ColumnTool events: [%s%s] is gone or unreadable\n", l_strDir.c_str(), l_strName.c_str());
      continue;
    }
    const long l_lLines = static_cast<long>(std::count(l_strText.begin(), l_strText.end(), '\n'));
    l_lEvents += l_lLines;
    ST_COLLECT_EVENT l_stEvent;
    for (size_t l_nAt = 0; l_nAt < l_strText.size();) {
      const size_t l_nEnd = std::min(l_strText.find('\n', l_nAt), l_strText.size() - 1) + 1;
      if (fgParseEventLine(l_strText.data() + l_nAt, l_nEnd - l_nAt, &l_stEvent) != 1) ++l_lUnparsed;
      l_nAt = l_nEnd;
    }
    if (l_bRaw) {
      fWriteAll(stdout, l_strText);
      continue;
    }
    printf("== %s (%ld event%s)\n", l_strName.c_str(), l_lLines, l_lLines == 1 ? "" : "s");
    fWriteAll(stdout, fgDecodeSeparators(l_strText));
    if (!l_strText.empty() && l_strText.back() != '\n') printf("\n");
  }

  // The agent's own count of the directory, against which the back-pressure
  // rule (no gather cycle at 200 entries) is held.
  CColumnLogger l_clLogger;
  fgStrCopy(l_clLogger.m_strOutPutPath, sizeof(l_clLogger.m_strOutPutPath), l_strDir.c_str());
  const int l_nEntries = l_clLogger.fCheckLimitFile();
  FILE* l_pstSummary = l_bRaw ? stderr : stdout;
  fprintf(l_pstSummary, "%zu out_ file%s waiting, %ld event%s; %d entr%s in %s (gathering pauses at %d)\n",
          l_vstrOut.size(), l_vstrOut.size() == 1 ? "" : "s", l_lEvents, l_lEvents == 1 ? "" : "s", l_nEntries,
          l_nEntries == 1 ? "y" : "ies", l_strDir.c_str(), OUTPUT_BACKLOG_LIMIT);
  if (l_lUnparsed > 0) {
    fprintf(l_pstSummary, "%ld line%s without the event layout: the collector delivers them whole, marked unparsed\n",
            l_lUnparsed, l_lUnparsed == 1 ? "" : "s");
  }
  for (const std::string& l_strName : l_vstrIng) {
    fprintf(l_pstSummary, "%s: still being written, or left by a failed hand-off\n", l_strName.c_str());
  }
  return TOOL_EXIT_OK;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "%s", USAGE);
    return TOOL_EXIT_USAGE;
  }
  const std::string l_strCommand = argv[1];
  if (l_strCommand == "check") return fgToolCheck(argc - 1, argv + 1);
  if (l_strCommand == "replay") return fgToolReplay(argc - 1, argv + 1);
  if (l_strCommand == "encode") return fgToolEncode(argc - 1, argv + 1, true);
  if (l_strCommand == "decode") return fgToolEncode(argc - 1, argv + 1, false);
  if (l_strCommand == "events") return fgToolEvents(argc - 1, argv + 1);
  if (l_strCommand == "status") return fgToolStatus(argc - 1, argv + 1);
  if (l_strCommand == "--version") {
    printf("ColumnTool %s\n", COLUMNLOGS_VERSION);
    return TOOL_EXIT_OK;
  }
  if (l_strCommand == "collect") return fgToolCollect(argc - 1, argv + 1);
  if (l_strCommand == "-h" || l_strCommand == "--help" || l_strCommand == "help") {
    printf("%s", USAGE);
    return TOOL_EXIT_OK;
  }
  fprintf(stderr, "ColumnTool: unknown subcommand [%s]\n%s", argv[1], USAGE);
  return TOOL_EXIT_USAGE;
}
