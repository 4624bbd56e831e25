// DEFER_EVENTS: events past the ceiling and past a broken output directory are delayed, never dropped, and never
// written twice; without the key they are passed over or dropped, as always. And, key or not, a short write never
// hands off a part of an event line, nor an empty file.
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <set>

#include "TestSupport.h"

// Sequence numbers of the events in `events` ("a,SEQ,..." lines), in order.
std::vector<int> Seqs(const std::string& events) {
  std::vector<int> seqs;
  for (size_t at = events.find("ORIGINAL_MSG:a,"); at != std::string::npos; at = events.find("ORIGINAL_MSG:a,", at + 1))
    seqs.push_back(std::stoi(events.substr(at + 15)));
  return seqs;
}
std::vector<int> Range(int from, int to) {
  std::vector<int> seqs;
  for (int seq = from; seq <= to; ++seq) seqs.push_back(seq);
  return seqs;
}
std::string Firing(int from, int to, const std::string& padding = "") {  // lines that fire CpuRule once each
  std::string lines;
  for (int seq = from; seq <= to; ++seq) lines += "a," + std::to_string(seq) + ",95" + padding + "\n";
  return lines;
}
const char* const DEFER = "DEFER_EVENTS=1\n";

// 250 firing lines at once: the ceiling passes 149 over for good, or defers them to the next cycles.
TEST(DeferEvents, BacklogBeyondTheCeiling) {
  for (const bool defer : {false, true}) {
    SCOPED_TRACE(defer ? "DEFER_EVENTS=1" : "no key");
    AgentDir agent;
    const std::string status = agent.Path("agent.prom");
    agent.Start({CpuRule(1, agent.AppLog(Firing(1, 250)))}, "log", "out", false,
                (defer ? DEFER : "") + ("STATUS_FILE=" + status + "\n"));
    ASSERT_TRUE(agent.WaitForEvents(defer ? 250 : 101));
    ASSERT_TRUE(agent.WaitForCycles(2));
    EXPECT_EQ(Seqs(agent.Events()), Range(1, defer ? 250 : 101));
    EXPECT_EQ(Count(agent.Diag(), "event ceiling reached, the rest waits for the next cycle"), defer ? 2u : 0u);
    // The lines past the first stop are counted once each, when a later turn reaches them.
    ASSERT_TRUE(agent.Agent().Signal(SIGTERM));
    ASSERT_EQ(agent.Agent().Wait(10000), 0);
    const std::string deferred = "columnlogs_entry_deferred_lines_total{entry=\"01\",file=\"" + agent.Path("logs/app.log") + "\"} ";
    EXPECT_NE(ReadFile(status).find(deferred + (defer ? "149" : "0") + "\n"), std::string::npos) << ReadFile(status);
  }
}

// The output directory is removed or read-only for a few cycles: its lines' events come once it is mended, or are
// lost.
TEST(DeferEvents, OutputDirectoryBrokenForAWhile) {
  using Change = std::function<void(const std::string& out)>;
  const struct { const char* name; bool unprivileged; Change fault, mend; } faults[] = {
      {"removed", false, [](auto& out) { ASSERT_EQ(rmdir(out.c_str()), 0) << strerror(errno); },
       [](auto& out) { ASSERT_EQ(mkdir(out.c_str(), 0755), 0); }},
      {"read-only", true, [](auto& out) { ASSERT_EQ(chmod(out.c_str(), 0555), 0); },
       [](auto& out) { ASSERT_EQ(chmod(out.c_str(), 0777), 0); }},
  };
  for (const auto& f : faults) {
    if (SkipUnprivileged(f.unprivileged, f.name)) continue;
    for (const bool defer : {false, true}) {
      SCOPED_TRACE(std::string(f.name) + (defer ? ", DEFER_EVENTS=1" : ", no key"));
      AgentDir agent;
      const std::string log = agent.AppLog("a,0,10\n");
      agent.Start({CpuRule(1, log, 0)}, "log", "out", f.unprivileged, defer ? DEFER : "");
      ASSERT_TRUE(agent.WaitForCycles(1));
      ASSERT_NO_FATAL_FAILURE(f.fault(agent.Path("out")));
      ASSERT_TRUE(AppendFile(log, Firing(1, 30)));
      ASSERT_TRUE(agent.WaitForCycles(3));
      ASSERT_NO_FATAL_FAILURE(f.mend(agent.Path("out")));
      ASSERT_TRUE(AppendFile(log, Firing(31, 40)));
      ASSERT_TRUE(agent.WaitForEvents(defer ? 40 : 10));
      ASSERT_TRUE(agent.WaitForCycles(1));
      EXPECT_EQ(Seqs(agent.Events()), Range(defer ? 1 : 31, 40));
      EXPECT_EQ(Count(agent.Diag(), "events not written, read again from offset") > 0, defer);
    }
  }
}

// A small file system with one page left: a cycle's 50 events (about 7 KB) do not fit. The file handed off holds
// whole lines only, the record counts the bytes really lost, a full disk hands off no empty file, and with the key
// every event arrives once the space is back.
TEST(DeferEvents, ShortWriteOnAFullDisk) {
  const std::string padding = "," + std::string(100, 'p');
  for (const bool defer : {false, true}) {
    SCOPED_TRACE(defer ? "DEFER_EVENTS=1" : "no key");
    AgentDir agent;
    const std::string out = agent.Path("out");
    if (mount("tmpfs", out.c_str(), "tmpfs", 0, "size=64k") != 0)
      GTEST_SKIP() << "no tmpfs can be mounted here (" << strerror(errno) << "): the full disk is not tried";
    struct Unmount { std::string dir; ~Unmount() { umount2(dir.c_str(), MNT_DETACH); } } unmount{out};
    ASSERT_TRUE(WriteFile(out + "/.filler", std::string(60 * 1024, 'f')));  // one 4 KB page left
    const std::string log = agent.AppLog("a,0,10\n");
    agent.Start({CpuRule(1, log, 0)}, "log", "out", false, defer ? DEFER : "");
    ASSERT_TRUE(agent.WaitForCycles(1));
    ASSERT_TRUE(AppendFile(log, Firing(1, 50, padding)));
    ASSERT_TRUE(agent.WaitForDiag("event write failed"));
    ASSERT_TRUE(AppendFile(log, Firing(51, 55, padding)));  // while the disk is full
    ASSERT_TRUE(agent.WaitForCycles(2));
    for (const std::string& name : agent.OutFiles()) {
      const std::string text = ReadFile(out + "/" + name);
      EXPECT_TRUE(!text.empty() && text.back() == '\n') << name << " ends in a part of a line or is empty";
    }
    const std::vector<int> before = Seqs(agent.Events());
    EXPECT_TRUE(!before.empty() && before.size() < 50) << before.size() << " events fitted";
    std::string all;
    for (int seq = 1; seq <= 50; ++seq) all += CpuEvent(1, "a," + std::to_string(seq) + ",95" + padding);
    if (!defer) {  // the record names the bytes of the first cycle that did not stay
      const std::string record = " bytes lost : No space left on device";
      const std::string diag = agent.Diag();
      const size_t end = diag.find(record), start = diag.rfind(", ", end) + 2;
      ASSERT_NE(end, std::string::npos) << diag;
      EXPECT_EQ(std::stoul(diag.substr(start, end - start)), Sep(all).size() - Sep(agent.Events()).size()) << diag;
      EXPECT_EQ(before, Range(1, static_cast<int>(before.size())));
    }
    ASSERT_EQ(unlink((out + "/.filler").c_str()), 0);
    ASSERT_TRUE(AppendFile(log, Firing(56, 56)));
    ASSERT_TRUE(agent.WaitForEvents(defer ? 56 : before.size() + 1));
    ASSERT_TRUE(agent.WaitForCycles(1));
    std::vector<int> expected = defer ? Range(1, 56) : before;
    if (!defer) expected.push_back(56);
    EXPECT_EQ(Seqs(agent.Events()), expected);
  }
}
