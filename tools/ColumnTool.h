// ColumnTool: the companion tool of the agent for rule authors and operators.
// One executable, one subcommand per task; each shares the agent's own
// classes (CColumnLogger and its registries), never a copy of their logic.
//
// Exit status of every subcommand: 0 done (check: nothing skipped, rejected
// or broken), 1 check found problems or the work could not be done, 2 usage
// error or an unreadable input.
#pragma once

#include <string>

class CColumnLogger;

constexpr int TOOL_EXIT_OK = 0;
constexpr int TOOL_EXIT_PROBLEMS = 1;
constexpr int TOOL_EXIT_USAGE = 2;

// What loading a configuration the way the agent does produced.
struct ST_TOOL_LOAD {
  int m_nStoreResult = 0;     // CColumnLogger::fSetConfManager: 1 read, 0 not
  int m_nLoadResult = -1;     // fLoadConfInfo: 1 loaded, 0 refused, -1 not run (no store)
  std::string m_strStderr;    // what the store and the loader wrote on standard error
};

// Loads `l_pstrPath` into `l_clLogger` as the agent's start-up does
// (fSetConfManager, then fLoadConfInfo), without creating the process logger,
// so nothing goes to a diagnostic log and the console trace stays off. What
// the store and the loader write on standard error (rejected entries, lock
// failures) is captured into the result instead of being shown.
ST_TOOL_LOAD fgToolLoad(CColumnLogger& l_clLogger, const char* l_pstrPath);

// Text with the separators in readable notation and other control bytes as
// \r, \t or \xNN, for showing configuration values and names.
std::string fgShowText(const std::string& l_strText);

// The subcommands; argv[0] is the subcommand's name.
int fgToolCheck(int argc, char** argv);
int fgToolReplay(int argc, char** argv);
int fgToolEncode(int argc, char** argv, bool l_bEncode);
int fgToolEvents(int argc, char** argv);
int fgToolStatus(int argc, char** argv);
