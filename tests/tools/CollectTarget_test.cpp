// Destinations of the collector: the COLLECT_TO values, and delivery to real sockets and files, down and back.
#include <sys/un.h>

#include "CollectTestSupport.h"
#include "CollectTarget.h"

TEST(CollectTarget, ReadsDestinationValues) {
  const struct { std::string value; int result; ECollectKind kind = ECollectKind::UNIX; std::string pathOrHost = ""; int port = 0; } cases[] = {
      {"jsonl:/var/spool/events.jsonl", 1, ECollectKind::JSONL, "/var/spool/events.jsonl", 0},
      {"jsonl:-", 1, ECollectKind::STDOUT, "-", 0},
      {"syslog:unix:/dev/log", 1, ECollectKind::UNIX, "/dev/log", 0},
      {"syslog:udp:127.0.0.1:514", 1, ECollectKind::UDP, "127.0.0.1", 514},
      {"syslog:tcp:logs.example:65535", 1, ECollectKind::TCP, "logs.example", 65535},
      {"syslog:tcp:[::1]:6514", 1, ECollectKind::TCP, "::1", 6514},
      {"jsonl:", 0}, {"jsonl:relative.jsonl", 0}, {"syslog:unix:dev/log", 0}, {"syslog:unix:/" + std::string(120, 'x'), 0},
      {"syslog:tcp:host", 0}, {"syslog:tcp::514", 0}, {"syslog:udp:::1:514", 0}, {"syslog:tcp:h:0", 0},
      {"syslog:tcp:h:65536", 0}, {"syslog:tcp:h:514\r", 0}, {"syslog:tls:h:6514", 0}, {"", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    ST_COLLECT_TO to;
    std::string reason;
    ASSERT_EQ(fgParseCollectTo(c.value, &to, &reason), c.result);
    EXPECT_EQ(reason.empty(), c.result == 1) << reason;
    if (c.result != 1) continue;
    EXPECT_EQ(std::make_tuple(to.m_eKind, to.m_eKind == ECollectKind::UDP || to.m_eKind == ECollectKind::TCP
                                              ? to.m_strHost : to.m_strPath, to.m_nPort),
              std::make_tuple(c.kind, c.pathOrHost, c.port));
  }
}

namespace {
ST_COLLECT_TO To(const std::string& value) {
  ST_COLLECT_TO to;
  EXPECT_EQ(fgParseCollectTo(value, &to, nullptr), 1) << value;
  return to;
}
int BoundDatagram(int family, const std::string& unixPath, int* port) {  // a receiving socket, non-blocking
  const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (family == AF_UNIX) {
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, unixPath.c_str());
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
  } else {
    sockaddr_in addr = {};
    socklen_t len = sizeof(addr);
    addr.sin_family = AF_INET, addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    *port = ntohs(addr.sin_port);
  }
  return fd;
}
std::vector<std::string> Datagrams(int fd) {
  std::vector<std::string> out;
  char buf[70000];
  for (ssize_t n; (n = recv(fd, buf, sizeof(buf), 0)) >= 0;) out.emplace_back(buf, static_cast<size_t>(n));
  return out;
}
}  // namespace

// Every record arrives whole and in order; a destination that goes away fails the batch, and the same target
// delivers again, on its own, once it is back.
TEST(CollectTarget, DeliversDownAndBackOnEveryTransport) {
  TempDir dir;
  const std::vector<std::string> records = {"<13>1 - - a - - - one", std::string(3000, 'x'), "<13>1 - - a - - - three"};
  size_t done = 99;

  int port = 0;
  int udp = BoundDatagram(AF_INET, "", &port);
  int local = BoundDatagram(AF_UNIX, dir.file("log"), nullptr);
  for (const std::string& value : {"syslog:udp:127.0.0.1:" + std::to_string(port), "syslog:unix:" + dir.file("log")}) {
    SCOPED_TRACE(value);
    const bool isUnix = value.find("unix") != std::string::npos;
    CCollectTarget target(To(value));
    ASSERT_EQ(target.fDeliver(records, &done), 1) << target.fError();
    EXPECT_EQ(Datagrams(isUnix ? local : udp), records);
    close(isUnix ? local : udp);
    if (isUnix) unlink(dir.file("log").c_str());
    // UDP learns of the closed port from an ICMP answer: the first send may still pass.
    int failures = 0;
    for (int i = 0; i < 3; ++i) failures += target.fDeliver(records, &done) == -1;
    EXPECT_GE(failures, 1);
    EXPECT_NE(target.fError(), "");
    if (isUnix) local = BoundDatagram(AF_UNIX, dir.file("log"), nullptr);
    if (!isUnix) udp = BoundDatagram(AF_INET, "", &port);
    if (!isUnix) continue;  // a new UDP port: the old target cannot know it
    ASSERT_EQ(target.fDeliver(records, &done), 1) << target.fError();
    EXPECT_EQ(Datagrams(local), records);
  }
  close(udp), close(local);

  auto peer = std::make_unique<TcpPeer>();
  const int tcpPort = peer->Port();
  CCollectTarget tcp(To("syslog:tcp:127.0.0.1:" + std::to_string(tcpPort)));
  ASSERT_EQ(tcp.fDeliver(records, &done), 1) << tcp.fError();
  EXPECT_EQ(done, 3u);
  EXPECT_TRUE(PollFor([&] { return Frames(peer->Received()).size() == 3; }, 2000));
  EXPECT_EQ(Frames(peer->Received()), records);
  peer.reset();  // the peer goes away
  EXPECT_EQ(tcp.fDeliver(records, &done), -1);
  EXPECT_EQ(done, 0u);
  EXPECT_NE(tcp.fError().find("Connection refused"), std::string::npos) << tcp.fError();
  peer = std::make_unique<TcpPeer>(tcpPort);
  ASSERT_EQ(tcp.fDeliver(records, &done), 1) << tcp.fError();
  EXPECT_TRUE(PollFor([&] { return Frames(peer->Received()).size() == 3; }, 2000));
  EXPECT_EQ(Frames(peer->Received()), records);
}

// jsonl: a full disk takes the whole batch back (no half line stays); a rotated file is opened anew.
TEST(CollectTarget, JsonlIsAllOrNothingAndFollowsRotation) {
  TempDir dir;
  const std::string path = dir.file("events.jsonl");
  ASSERT_EQ(symlink("/dev/full", path.c_str()), 0);
  CCollectTarget target(To("jsonl:" + path));
  const std::vector<std::string> records = {"{\"a\":1}\n", "{\"b\":2}\n"};
  size_t done = 99;
  EXPECT_EQ(target.fDeliver(records, &done), -1);
  EXPECT_EQ(done, 0u);
  EXPECT_NE(target.fError().find("No space left on device"), std::string::npos) << target.fError();
  unlink(path.c_str());
  ASSERT_TRUE(WriteFile(path, "{\"old\":0}\n"));
  ASSERT_EQ(target.fDeliver(records, &done), 1) << target.fError();
  EXPECT_EQ(ReadFile(path), "{\"old\":0}\n{\"a\":1}\n{\"b\":2}\n");
  ASSERT_EQ(rename(path.c_str(), (path + ".1").c_str()), 0);
  ASSERT_EQ(target.fDeliver(records, &done), 1);
  EXPECT_EQ(ReadFile(path), "{\"a\":1}\n{\"b\":2}\n");
  EXPECT_EQ(ReadFile(path + ".1"), "{\"old\":0}\n{\"a\":1}\n{\"b\":2}\n");
}
