// Running a built executable of the project (the companion tool, cmake) as a
// child process with given arguments, standard input and working directory,
// and collecting its exit status and output.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "TestSupport.h"

namespace toolrun {

struct Result {
  int status = -1;  // exit status; -2 when ended by a signal, -1 when it could not run
  std::string out;
  std::string err;
};

inline std::string ToolBinary() { return std::string(COLUMNLOGS_BINARY_DIR) + "/bin/ColumnTool"; }

// Runs `argv[0]` (a path) with the arguments; `input` is its standard input.
inline Result Run(const std::vector<std::string>& argv, const std::string& input = "", const std::string& cwd = "") {
  testsupport::TempDir io;
  const std::string in_path = io.file("in"), out_path = io.file("out"), err_path = io.file("err");
  testsupport::WriteFile(in_path, input);
  Result result;
  const pid_t pid = fork();
  if (pid == 0) {
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
    const int in = open(in_path.c_str(), O_RDONLY);
    const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || out < 0 || err < 0) _exit(126);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  if (pid < 0) return result;
  int status = 0;
  waitpid(pid, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -2;
  result.out = testsupport::ReadFile(out_path);
  result.err = testsupport::ReadFile(err_path);
  return result;
}

// The companion tool with these arguments.
inline Result Tool(std::vector<std::string> args, const std::string& input = "") {
  args.insert(args.begin(), ToolBinary());
  return Run(args, input);
}

}  // namespace toolrun
