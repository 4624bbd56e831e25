// ColumnTool collect as a process: with the real agent, with a real rsyslogd, and through its faults (destination
// down and back, SIGKILL, SIGTERM, ing_ files, foreign entries).
#include <sys/stat.h>
#include <sys/time.h>

#include "CollectEvent.h"
#include "CollectFormat.h"
#include "CollectSpool.h"
#include "CollectTestSupport.h"
#include "EventFormat.h"

namespace {
const std::string kTool = std::string(COLUMNLOGS_BINARY_DIR) + "/bin/ColumnTool";

// The collector as a child; killed on destruction if it still runs.
class Collector {
 public:
  Collector(const TempDir& dir, const std::string& outDir, const std::string& to) : m_dir(dir) {
    EXPECT_TRUE(WriteFile(dir.file("collect.conf"), "OUTPUT_PATH=" + outDir + "/\nCOLLECT_TO=" + to +
                                                         "\nSTATUS_FILE=" + dir.file("agent.prom") + "\n"));
    Start();
  }
  ~Collector() { Signal(SIGKILL); }
  void Start() {  // returns once it has said where it collects to (its signal handlers are set then)
    m_pid = Spawn({kTool, "collect", m_dir.file("collect.conf")}, "", "/dev/null", m_dir.file("collect.out"),
                  m_dir.file("collect.err." + std::to_string(m_runs++)), false);
    EXPECT_TRUE(PollFor([&] { return Stderr().find("collecting") != std::string::npos; }, 5000));
  }
  int Signal(int signal) {  // the exit status (-2 after the signal itself)
    if (m_pid <= 0) return -1;
    int status = 0;
    kill(m_pid, signal), waitpid(m_pid, &status, 0), m_pid = -1;
    return ExitStatus(status);
  }
  std::string Stderr() const { return ReadFile(m_dir.file("collect.err." + std::to_string(m_runs - 1))); }

 private:
  const TempDir& m_dir;
  pid_t m_pid = -1;
  int m_runs = 0;
};

std::string EventLine(int entry, int value, const std::string& line) {
  char buf[4096];
  fgFormatRuleEvent(buf, sizeof(buf), entry, 1, 2, 3, ("Value[" + std::to_string(value) + "] > 90").c_str(), line.c_str());
  return buf;
}
// `files` out_ files of `lines` events each, every log line "id=F.L" unique.
void FillSpool(const std::string& out, int files, int lines) {
  for (int f = 0; f < files; ++f) {
    std::string text;
    for (int l = 0; l < lines; ++l) text += EventLine(1, 95, "id=" + std::to_string(f) + "." + std::to_string(l));
    char name[32];
    snprintf(name, sizeof(name), "/out_20240101-%06d", f);
    ASSERT_TRUE(WriteFile(out + name, text));
  }
}
// How often each "id=F.L" arrived in JSON lines: the last one of each line, which a line cut by a kill precedes.
std::map<std::string, int> Ids(const std::string& jsonl) {
  std::map<std::string, int> ids;
  for (size_t start = 0, end; (end = jsonl.find('\n', start)) != std::string::npos; start = end + 1) {
    const size_t at = jsonl.rfind("\"line\":\"id=", end);
    if (at != std::string::npos && at >= start) ++ids[jsonl.substr(at + 11, jsonl.find('"', at + 11) - at - 11)];
  }
  return ids;
}
size_t EventFiles(const std::string& out) {
  const auto names = ListDir(out);
  return std::count_if(names.begin(), names.end(), [](const std::string& n) { return fgIsEventFileName(n); });
}
}  // namespace

// The agent's events arrive as JSON lines, and the event directory is emptied.
TEST(Collector, ShipsTheAgentsEventsAndEmptiesTheSpool) {
  AgentDir agent;
  agent.Start({CpuRule(1, agent.AppLog("a,b,91\na,b,50\na,\"b\\,99\n"))});
  TempDir dir;
  Collector collector(dir, agent.Path("out"), "jsonl:" + dir.file("events.jsonl"));
  ASSERT_TRUE(PollFor([&] { return Count(ReadFile(dir.file("events.jsonl")), "\n") == 2; }, 10000));
  ASSERT_TRUE(AppendFile(agent.Path("logs/app.log"), "x,y,93\n"));
  ASSERT_TRUE(PollFor([&] { return Count(ReadFile(dir.file("events.jsonl")), "\n") == 3; }, 10000));
  const std::string jsonl = ReadFile(dir.file("events.jsonl"));
  for (const char* expected : {"\"value\":\"91\",\"op\":\">\",\"threshold\":\"90\",\"line\":\"a,b,91\"}",
                                      "\"value\":\"99\",\"op\":\">\",\"threshold\":\"90\",\"line\":\"a,\\\"b\\\\,99\"}",
                                      "\"line\":\"x,y,93\"}", "\"parsed\":true,\"entry\":1,\"kind\":\"numeric\",\"level\":2,\"column\":3"})
    EXPECT_NE(jsonl.find(expected), std::string::npos) << expected << "\n" << jsonl;
  EXPECT_TRUE(PollFor([&] { return EventFiles(agent.Path("out")) == 0; }, 3000)) << ListDir(agent.Path("out")).size();
  EXPECT_EQ(collector.Signal(SIGTERM), 0);
  // Its own status file beside the agent's, written at the stop.
  const std::string status = ReadFile(dir.file("agent-collect.prom"));
  for (const std::string& sample : {std::string("columnlogs_collect_events_total 3\n"),
                                    "columnlogs_collect_destination_up{to=\"jsonl:" + dir.file("events.jsonl") + "\"} 1\n",
                                    std::string("columnlogs_collect_waiting_files 0\n")})
    EXPECT_NE(status.find(sample), std::string::npos) << sample << status;
}

// Destination down (TCP peer gone; jsonl on a full disk): files kept, one line when it goes down and one when it is
// back, everything delivered once it is back.
TEST(Collector, KeepsFilesWhileTheDestinationIsDownAndResumes) {
  for (const bool tcp : {true, false}) {
    SCOPED_TRACE(tcp ? "tcp" : "jsonl");
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("out").c_str(), 0755), 0);
    FillSpool(dir.file("out"), 3, 4);
    auto peer = std::make_unique<TcpPeer>();
    const int port = peer->Port();
    peer.reset();
    ASSERT_EQ(symlink("/dev/full", dir.file("events.jsonl").c_str()), 0);
    Collector collector(dir, dir.file("out"), tcp ? "syslog:tcp:127.0.0.1:" + std::to_string(port)
                                                  : "jsonl:" + dir.file("events.jsonl"));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // tries at 0, 1 and 3 s
    EXPECT_EQ(EventFiles(dir.file("out")), 3u);
    if (tcp) peer = std::make_unique<TcpPeer>(port);
    if (!tcp) unlink(dir.file("events.jsonl").c_str());  // space again
    ASSERT_TRUE(PollFor([&] { return EventFiles(dir.file("out")) == 0; }, 8000));
    std::vector<std::string> got;  // the log lines, in the order they came
    if (tcp) {
      for (const std::string& frame : Frames(peer->Received())) got.push_back(ParseSd(frame).at("line"));
    } else {
      for (const auto& id : Ids(ReadFile(dir.file("events.jsonl")))) got.push_back("id=" + id.first);
    }
    ASSERT_EQ(got.size(), 12u);
    EXPECT_EQ(std::make_pair(got[0], got[11]), std::make_pair(std::string("id=0.0"), std::string("id=2.3")));
    EXPECT_EQ(collector.Signal(SIGTERM), 0);
    const std::string err = collector.Stderr();
    EXPECT_EQ(Count(err, tcp ? "is down, 3 event files kept, retrying : connect 127.0.0.1:" + std::to_string(port) +
                                   " : Connection refused"
                             : "is down, 3 event files kept, retrying : write " + dir.file("events.jsonl") +
                                   " : No space left on device"), 1u) << err;
    EXPECT_EQ(Count(err, "is back after"), 1u) << err;
    EXPECT_NE(err.find("stopped: 3 files, 12 events delivered (0 unparsed)"), std::string::npos) << err;
  }
}

// A slow reader of a named pipe, so that a signal finds the collector in the middle of a file.
class PipeReader {
 public:
  explicit PipeReader(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    m_fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    m_thread = std::thread([this] {
      char buf[4096];
      for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
           !m_stop && std::chrono::steady_clock::now() < end;) {
        const ssize_t n = read(m_fd, buf, sizeof(buf));
        if (n > 0) { std::lock_guard<std::mutex> lock(m_mutex); m_data.append(buf, static_cast<size_t>(n)); }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  ~PipeReader() { m_stop = true, m_thread.join(), close(m_fd); }
  std::string Data() { std::lock_guard<std::mutex> lock(m_mutex); return m_data; }

 private:
  int m_fd = -1;
  std::atomic<bool> m_stop{false};
  std::mutex m_mutex;
  std::string m_data;
  std::thread m_thread;
};

// After SIGKILL at most one file's events come again; after SIGTERM none. Every event arrives.
TEST(Collector, SendsAtMostTheFileInProgressTwice) {
  constexpr int kFiles = 10, kLines = 500;
  for (const int signal : {SIGKILL, SIGTERM}) {
    SCOPED_TRACE(signal);
    TempDir dir;
    ASSERT_EQ(mkdir(dir.file("out").c_str(), 0755), 0);
    FillSpool(dir.file("out"), kFiles, kLines);
    PipeReader reader(dir.file("events.pipe"));
    Collector collector(dir, dir.file("out"), "jsonl:" + dir.file("events.pipe"));
    ASSERT_TRUE(PollFor([&] { return reader.Data().size() > 200000; }, 10000));
    const int status = collector.Signal(signal);
    const size_t left = EventFiles(dir.file("out"));
    EXPECT_EQ(status, signal == SIGTERM ? 0 : -2);
    EXPECT_TRUE(left > 0 && left < kFiles) << left;
    collector.Start();
    ASSERT_TRUE(PollFor([&] { return EventFiles(dir.file("out")) == 0; }, 20000));
    EXPECT_EQ(collector.Signal(SIGTERM), 0);
    PollFor([&] { return Ids(reader.Data()).size() == kFiles * kLines; }, 5000);  // what the pipe still holds
    const auto ids = Ids(reader.Data());
    int twice = 0;
    for (const auto& id : ids) twice += id.second - 1;
    EXPECT_EQ(ids.size(), static_cast<size_t>(kFiles * kLines));
    EXPECT_LE(twice, signal == SIGTERM ? 0 : kLines);
  }
}

// ing_ files: taken once a later cycle began or once quiet; the newest waits. Foreign entries stay and are counted.
TEST(Collector, TakesIngFilesNoCycleCanExtendAndLeavesOthersAlone) {
  TempDir dir;
  const std::string out = dir.file("out");
  ASSERT_EQ(mkdir(out.c_str(), 0755), 0);
  ASSERT_EQ(mkdir((out + "/sub").c_str(), 0755), 0);
  ASSERT_TRUE(WriteFile(out + "/ing_20240101-000001", EventLine(1, 91, "old ing")));
  ASSERT_TRUE(WriteFile(out + "/out_20240101-000002", EventLine(1, 92, "out") + "not an event\n"));
  ASSERT_TRUE(WriteFile(out + "/ing_20240101-000003", EventLine(1, 93, "newest ing")));
  ASSERT_TRUE(WriteFile(out + "/notes.txt", "keep"));
  Collector collector(dir, out, "jsonl:" + dir.file("events.jsonl"));
  ASSERT_TRUE(PollFor([&] { return Count(ReadFile(dir.file("events.jsonl")), "\n") == 3; }, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(ListDir(out), (std::vector<std::string>{"ing_20240101-000003", "notes.txt", "sub"}));
  const timeval quiet[2] = {{time(nullptr) - ING_QUIET_SECONDS - 1, 0}, {time(nullptr) - ING_QUIET_SECONDS - 1, 0}};
  ASSERT_EQ(utimes((out + "/ing_20240101-000003").c_str(), quiet), 0);
  ASSERT_TRUE(PollFor([&] { return ListDir(out).size() == 2; }, 3000));
  const std::string jsonl = ReadFile(dir.file("events.jsonl"));
  const size_t oldIng = jsonl.find("\"line\":\"old ing\""), outLine = jsonl.find("\"line\":\"out\"");
  const size_t unparsed = jsonl.find("\"parsed\":false,\"message\":\"not an event\""), newest = jsonl.find("newest ing");
  EXPECT_TRUE(oldIng < outLine && outLine < unparsed && unparsed < newest && newest != std::string::npos) << jsonl;
  EXPECT_NE(collector.Stderr().find("2 other entries in " + out + "/ left alone"), std::string::npos)
      << collector.Stderr();
}

// A real rsyslogd on a loopback TCP port receives every field as the agent wrote it.
TEST(Collector, RsyslogReceivesEveryField) {
  const std::string rsyslogd = "/usr/sbin/rsyslogd";
  if (access(rsyslogd.c_str(), X_OK) != 0) GTEST_SKIP() << rsyslogd << " is not installed (Debian package rsyslog)";
  TempDir dir;
  ASSERT_EQ(mkdir(dir.file("out").c_str(), 0755), 0);
  const int port = TcpPeer().Port();  // free a moment ago
  ASSERT_TRUE(WriteFile(dir.file("rsyslog.conf"),
      "global(workDirectory=\"" + dir.path() + "\")\nmodule(load=\"imtcp\")\n"
      "input(type=\"imtcp\" address=\"127.0.0.1\" port=\"" + std::to_string(port) + "\")\n"
      "template(name=\"f\" type=\"string\" string=\"%syslogseverity%|%syslogfacility%|%timereported:::date-rfc3339%|"
      "%hostname%|%app-name%|%procid%|%msgid%|%structured-data%|%msg%\\n\")\n"
      "*.* action(type=\"omfile\" file=\"" + dir.file("received.log") + "\" template=\"f\")\n"));
  const pid_t server = Spawn({"/usr/bin/timeout", "60", rsyslogd, "-n", "-f", dir.file("rsyslog.conf"), "-i",
                              dir.file("rsyslog.pid")}, dir.path(), "/dev/null", dir.file("rsyslog.out"),
                             dir.file("rsyslog.err"), false);
  const bool listening = PollFor([&] {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET, addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
    return close(fd), ok;
  }, 5000);
  auto stopServer = [&] { kill(server, SIGTERM), waitpid(server, nullptr, 0); };
  if (!listening) {
    stopServer();
    GTEST_SKIP() << "rsyslogd did not start on 127.0.0.1:" << port << ": " << ReadFile(dir.file("rsyslog.err"));
  }
  struct Expected { std::string severity, kind, entry, level, column, value, op, threshold, line; };
  const std::string binary = "a,\"b]\\\x01\xff\xc3\xa9" + Sep("{|}") + "|, ORIGINAL_MSG:x";
  char rate[256];
  fgFormatLineRateEvent(rate, sizeof(rate), 19, 4, "10:11:12 ", 120, 100);
  const std::string text = Sep("2|2{|}1{|}COLUMN[2] Value[FAIL] == FAIL, ORIGINAL_MSG:a,FAIL\n");
  ASSERT_TRUE(WriteFile(dir.file("out/out_20240315-101112"), EventLine(1, 95, binary) + text + rate + "no event\n"));
  const std::vector<Expected> expected = {
      {"3", "numeric", "1", "2", "3", "95", ">", "90", binary},
      {"4", "text", "2", "1", "2", "FAIL", "==", "FAIL", "a,FAIL"},
      {"1", "rate", "19", "4", "", "120", ">=", "100", "10:11:12"},
      {"4", "unparsed", "", "", "", "", "", "", "no event"},
  };
  Collector collector(dir, dir.file("out"), "syslog:tcp:127.0.0.1:" + std::to_string(port));
  const bool arrived = PollFor([&] { return Count(ReadFile(dir.file("received.log")), "\n") >= expected.size(); }, 5000);
  collector.Signal(SIGTERM);
  stopServer();
  ASSERT_TRUE(arrived) << ReadFile(dir.file("received.log")) << ReadFile(dir.file("rsyslog.err"));
  char host[256] = {0};
  gethostname(host, sizeof(host) - 1);
  time_t when = 0;
  fgEventFileTime("out_20240315-101112", &when);
  const std::string received = ReadFile(dir.file("received.log"));
  size_t start = 0;
  for (const Expected& e : expected) {
    const std::string line = received.substr(start, received.find('\n', start) - start);
    start += line.size() + 1;
    SCOPED_TRACE(line);
    std::vector<std::string> header;
    size_t at = 0;
    for (int i = 0; i < 7; ++i, ++at) header.push_back(line.substr(at, line.find('|', at) - at)), at = line.find('|', at);
    EXPECT_EQ(header, (std::vector<std::string>{e.severity, "1", fgTimeRfc3339(when), host, "columnlogs", header[5], e.kind}));
    const Fields sd = ParseSd(" " + line.substr(at));
    ASSERT_EQ(sd.count("!"), 0u);
    EXPECT_EQ(sd.at("file"), "out_20240315-101112");
    if (e.kind == "unparsed") {
      EXPECT_EQ(std::make_tuple(sd.at("parsed"), sd.at("MSG")), std::make_tuple(std::string("0"), e.line));
      continue;
    }
    EXPECT_EQ(std::make_tuple(sd.at("entry"), sd.at("kind"), sd.at("level"), sd.at("value"), sd.at("op")),
              std::make_tuple(e.entry, e.kind, e.level, e.value, e.op));
    EXPECT_EQ(e.kind == "rate" ? sd.count("column") == 0 : sd.at("column") == e.column, true);
    EXPECT_EQ(sd.at(e.kind == "text" ? "text" : "threshold"), e.threshold);
    EXPECT_EQ(sd.at(e.kind == "rate" ? "dates" : "line"), e.line);
  }
}

// Bad configurations end at once with a message.
TEST(Collector, RefusesConfigurationsItCannotUse) {
  TempDir dir;
  const struct { std::string config, message; } cases[] = {
      {"COLLECT_TO=jsonl:-\n", "OUTPUT_PATH in [" + dir.file("c.conf") + "] is missing"},
      {"OUTPUT_PATH=/tmp\nCOLLECT_TO=jsonl:-\n", "is not a directory path: it must name the event directory"},
      {"OUTPUT_PATH=/tmp/\nCOLLECT_TO=syslog:tcp:h:x\n", "COLLECT_TO [syslog:tcp:h:x] in [" + dir.file("c.conf") +
                                                         "] : the port must be a number from 1 to 65535"},
  };
  for (const auto& c : cases) {
    ASSERT_TRUE(WriteFile(dir.file("c.conf"), c.config));
    const RunResult r = Tool({"collect", dir.file("c.conf")});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }
  EXPECT_EQ(Tool({"collect", dir.file("none.conf")}).status, 2);
}
