// Helpers of the collector's tests: a loopback TCP peer that stops itself after at most 60 seconds, the
// readers of octet-counted frames and of the structured data element.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <map>
#include <mutex>

#include "TestSupport.h"

// The messages of an RFC 6587 octet-counted stream ("LEN SP MSG" ...); a bad frame ends the list with "!".
inline std::vector<std::string> Frames(const std::string& stream) {
  std::vector<std::string> out;
  for (size_t at = 0; at < stream.size();) {
    const size_t space = stream.find(' ', at);
    if (space == std::string::npos) return out.push_back("!"), out;
    const size_t len = std::stoul(stream.substr(at, space - at));
    out.push_back(stream.substr(space + 1, len));
    at = space + 1 + len;
  }
  return out;
}

using Fields = std::map<std::string, std::string>;

// The structured data element of a syslog message, its escapes undone (\" \\ \] and \xNN), and MSG after
// "] " (or "]|", as a receiver's template may join them).
inline Fields ParseSd(const std::string& message) {
  Fields fields;
  size_t at = message.find(" [columnlogs@32473");
  if (at == std::string::npos) return {{"!", "no element"}};
  const auto unescape = [&](std::string* out) {  // the byte at `at` onto `out`, `at` on its last byte
    if (message[at] != '\\') *out += message[at];
    else if (message[++at] != 'x') *out += message[at];
    else *out += static_cast<char>(std::stoi(message.substr(at + 1, 2), nullptr, 16)), at += 2;
  };
  at += 18;
  while (at < message.size() && message[at] == ' ') {
    const size_t eq = message.find("=\"", at);
    std::string name = message.substr(at + 1, eq - at - 1), value;
    for (at = eq + 2; at < message.size() && message[at] != '"'; ++at) {
      if (message[at] == ']') return {{"!", "bare ]"}};
      unescape(&value);
    }
    fields[name] = value;
    ++at;
  }
  if (message.compare(at, 2, "] ") != 0 && message.compare(at, 2, "]|") != 0) return {{"!", "element not closed"}};
  std::string msg;  // the same escapes, and a backslash doubled
  for (at += 2; at < message.size(); ++at) unescape(&msg);
  fields["MSG"] = msg;
  return fields;
}

class TcpPeer {
 public:
  explicit TcpPeer(int port = 0) {  // port 0: any free one
    m_listen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(m_listen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in addr = {};
    addr.sin_family = AF_INET, addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(addr);
    EXPECT_EQ(bind(m_listen, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0) << strerror(errno);
    EXPECT_EQ(listen(m_listen, 4), 0);
    getsockname(m_listen, reinterpret_cast<sockaddr*>(&addr), &len);
    m_port = ntohs(addr.sin_port);
    m_thread = std::thread([this] { Serve(); });
  }
  ~TcpPeer() { m_stop = true, m_thread.join(); }  // closes the listener and every connection, as a peer that goes away
  int Port() const { return m_port; }
  std::string Received() { std::lock_guard<std::mutex> lock(m_mutex); return m_data; }

 private:
  void Serve() {
    std::vector<pollfd> fds = {{m_listen, POLLIN, 0}};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!m_stop && std::chrono::steady_clock::now() < deadline) {
      if (poll(fds.data(), fds.size(), 20) <= 0) continue;
      if (fds[0].revents & POLLIN) fds.push_back({accept4(m_listen, nullptr, nullptr, SOCK_CLOEXEC), POLLIN, 0});
      for (size_t i = 1; i < fds.size(); ++i) {
        if (!(fds[i].revents & (POLLIN | POLLHUP))) continue;
        char buf[65536];
        const ssize_t n = read(fds[i].fd, buf, sizeof(buf));
        if (n > 0) { std::lock_guard<std::mutex> lock(m_mutex); m_data.append(buf, static_cast<size_t>(n)); }
        if (n <= 0) close(fds[i].fd), fds.erase(fds.begin() + static_cast<long>(i--));
      }
    }
    for (const pollfd& p : fds) close(p.fd);
  }
  int m_listen = -1, m_port = 0;
  std::atomic<bool> m_stop{false};
  std::mutex m_mutex;
  std::string m_data;
  std::thread m_thread;
};
