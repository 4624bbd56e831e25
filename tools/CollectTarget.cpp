#include "CollectTarget.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "CommonConst.h"
#include "CommonFunc.h"

namespace {

// Largest datagram sent: a UDP payload fits in 65,507 bytes; the same bound
// keeps a local socket's datagrams below its buffer.
constexpr size_t DATAGRAM_MAX = 65000;
// A stream message may be longer; one bound keeps a log line of any size
// from growing the batch without end.
constexpr size_t STREAM_MESSAGE_MAX = 1 << 20;
// How long connecting and one blocked send may take.
constexpr int CONNECT_TIMEOUT_MS = 5000;
constexpr int SEND_TIMEOUT_SEC = 10;
// How long the peer's TCP may take to acknowledge a batch.
constexpr int ACK_TIMEOUT_MS = 10000;

bool fWriteAll(int l_nFd, const char* l_pstrData, size_t l_nLen, size_t* l_pnWritten) {
  size_t l_nDone = 0;
  while (l_nDone < l_nLen) {
    const ssize_t l_nWritten = write(l_nFd, l_pstrData + l_nDone, l_nLen - l_nDone);
    if (l_nWritten < 0 && errno == EINTR) continue;
    if (l_nWritten <= 0) {
      if (l_nWritten == 0) errno = EIO;
      if (l_pnWritten != nullptr) *l_pnWritten = l_nDone;
      return false;
    }
    l_nDone += static_cast<size_t>(l_nWritten);
  }
  if (l_pnWritten != nullptr) *l_pnWritten = l_nDone;
  return true;
}

bool fParsePort(const std::string& l_strText, int* l_pnPort) {
  if (l_strText.empty() || l_strText.size() > 5) return false;
  for (const char l_chChar : l_strText) {
    if (l_chChar < '0' || l_chChar > '9') return false;
  }
  *l_pnPort = atoi(l_strText.c_str());
  return *l_pnPort >= 1 && *l_pnPort <= 65535;
}

}  // namespace

int fgParseCollectTo(const std::string& l_strValue, ST_COLLECT_TO* l_pstTo, std::string* l_pstrReason) {
  ST_COLLECT_TO l_stTo;
  std::string l_strReason;
  if (l_strValue.compare(0, 6, "jsonl:") == 0) {
    l_stTo.m_strPath = l_strValue.substr(6);
    l_stTo.m_eKind = l_stTo.m_strPath == "-" ? ECollectKind::STDOUT : ECollectKind::JSONL;
    if (l_stTo.m_strPath.empty()) l_strReason = "jsonl: needs a file path, or - for standard output";
    if (l_stTo.m_eKind == ECollectKind::JSONL && l_stTo.m_strPath[0] != '/') {
      l_strReason = "the jsonl file must be an absolute path";
    }
  } else if (l_strValue.compare(0, 12, "syslog:unix:") == 0) {
    l_stTo.m_eKind = ECollectKind::UNIX;
    l_stTo.m_strPath = l_strValue.substr(12);
    if (l_stTo.m_strPath.empty() || l_stTo.m_strPath[0] != '/') {
      l_strReason = "syslog:unix: needs the absolute path of a socket, such as /dev/log";
    } else if (l_stTo.m_strPath.size() >= sizeof(sockaddr_un::sun_path)) {
      l_strReason = "the socket path is longer than a socket address holds (107 bytes)";
    }
  } else if (l_strValue.compare(0, 11, "syslog:udp:") == 0 || l_strValue.compare(0, 11, "syslog:tcp:") == 0) {
    l_stTo.m_eKind = l_strValue[7] == 'u' ? ECollectKind::UDP : ECollectKind::TCP;
    const std::string l_strAddress = l_strValue.substr(11);
    const size_t l_nColon = l_strAddress.rfind(':');
    std::string l_strHost = l_nColon == std::string::npos ? "" : l_strAddress.substr(0, l_nColon);
    if (l_strHost.size() >= 2 && l_strHost.front() == '[' && l_strHost.back() == ']') {
      l_strHost = l_strHost.substr(1, l_strHost.size() - 2);
    } else if (l_strHost.find(':') != std::string::npos) {
      l_strHost.clear();  // an IPv6 address needs its brackets
    }
    l_stTo.m_strHost = l_strHost;
    if (l_nColon == std::string::npos || l_strHost.empty()) {
      l_strReason = "expected HOST:PORT after syslog:udp: or syslog:tcp: (an IPv6 address in brackets)";
    } else if (!fParsePort(l_strAddress.substr(l_nColon + 1), &l_stTo.m_nPort)) {
      l_strReason = "the port must be a number from 1 to 65535";
    }
  } else {
    l_strReason = "unknown destination: use jsonl:PATH, jsonl:-, syslog:unix:SOCKET, syslog:udp:HOST:PORT or "
                  "syslog:tcp:HOST:PORT";
  }
  if (!l_strReason.empty()) {
    if (l_pstrReason != nullptr) *l_pstrReason = l_strReason;
    return RESULT_REFUSED;
  }
  if (l_pstTo != nullptr) *l_pstTo = l_stTo;
  return RESULT_OK;
}

CCollectTarget::CCollectTarget(const ST_COLLECT_TO& l_stTo) : m_stTo(l_stTo) {}

CCollectTarget::~CCollectTarget() { fClose(); }

void CCollectTarget::fClose() {
  if (m_nFd >= 0 && m_stTo.m_eKind != ECollectKind::STDOUT) close(m_nFd);
  m_nFd = -1;
  m_inoFile = 0;
}

int CCollectTarget::fFail(const char* l_pstrWhat, int l_nErrno) {
  m_strError = std::string(l_pstrWhat) + " : " + strerror(l_nErrno);
  fClose();
  return RESULT_FAIL;
}

std::string CCollectTarget::fFormat(const ST_COLLECT_EVENT& l_stEvent, const ST_COLLECT_ORIGIN& l_stOrigin) const {
  switch (m_stTo.m_eKind) {
    case ECollectKind::JSONL:
    case ECollectKind::STDOUT: return fgFormatJsonEvent(l_stEvent, l_stOrigin);
    case ECollectKind::TCP: return fgFormatSyslogEvent(l_stEvent, l_stOrigin, STREAM_MESSAGE_MAX);
    default: return fgFormatSyslogEvent(l_stEvent, l_stOrigin, DATAGRAM_MAX);
  }
}

int CCollectTarget::fOpen() {
  if (m_stTo.m_eKind == ECollectKind::STDOUT) {
    m_nFd = STDOUT_FILENO;
    return RESULT_OK;
  }
  if (m_stTo.m_eKind == ECollectKind::JSONL) {
    m_nFd = fgOpen(m_stTo.m_strPath.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0640);
    if (m_nFd < 0) return fFail(("open " + m_stTo.m_strPath).c_str(), errno);
    struct stat l_stStat;
    if (fstat(m_nFd, &l_stStat) == 0) m_inoFile = l_stStat.st_ino;
    return RESULT_OK;
  }
  if (m_stTo.m_eKind == ECollectKind::UNIX) {
    sockaddr_un l_stAddr = {};
    l_stAddr.sun_family = AF_UNIX;
    fgStrCopy(l_stAddr.sun_path, sizeof(l_stAddr.sun_path), m_stTo.m_strPath.c_str());
    m_nFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_nFd < 0) return fFail("socket", errno);
    const timeval l_stTimeout = {SEND_TIMEOUT_SEC, 0};
    setsockopt(m_nFd, SOL_SOCKET, SO_SNDTIMEO, &l_stTimeout, sizeof(l_stTimeout));
    if (connect(m_nFd, reinterpret_cast<sockaddr*>(&l_stAddr), sizeof(l_stAddr)) != 0) {
      return fFail(("connect " + m_stTo.m_strPath).c_str(), errno);
    }
    return RESULT_OK;
  }
  const std::string l_strWhere = m_stTo.m_strHost + ":" + std::to_string(m_stTo.m_nPort);
  addrinfo l_stHints = {};
  l_stHints.ai_socktype = m_stTo.m_eKind == ECollectKind::TCP ? SOCK_STREAM : SOCK_DGRAM;
  addrinfo* l_pstList = nullptr;
  const int l_nGai = getaddrinfo(m_stTo.m_strHost.c_str(), std::to_string(m_stTo.m_nPort).c_str(), &l_stHints,
                                 &l_pstList);
  if (l_nGai != 0) {
    m_strError = "resolve " + l_strWhere + " : " + gai_strerror(l_nGai);
    return RESULT_FAIL;
  }
  int l_nErrno = ECONNREFUSED;
  for (addrinfo* l_pstAddr = l_pstList; l_pstAddr != nullptr && m_nFd < 0; l_pstAddr = l_pstAddr->ai_next) {
    const int l_nFd = socket(l_pstAddr->ai_family, l_pstAddr->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (l_nFd < 0) {
      l_nErrno = errno;
      continue;
    }
    int l_nResult = connect(l_nFd, l_pstAddr->ai_addr, l_pstAddr->ai_addrlen);
    if (l_nResult != 0 && errno == EINPROGRESS) {
      pollfd l_stPoll = {l_nFd, POLLOUT, 0};
      int l_nSoError = ETIMEDOUT;
      socklen_t l_nLen = sizeof(l_nSoError);
      if (poll(&l_stPoll, 1, CONNECT_TIMEOUT_MS) == 1) getsockopt(l_nFd, SOL_SOCKET, SO_ERROR, &l_nSoError, &l_nLen);
      errno = l_nSoError;
      l_nResult = l_nSoError == 0 ? 0 : -1;
    }
    if (l_nResult != 0) {
      l_nErrno = errno;
      close(l_nFd);
      continue;
    }
    fcntl(l_nFd, F_SETFL, fcntl(l_nFd, F_GETFL) & ~O_NONBLOCK);
    const timeval l_stTimeout = {SEND_TIMEOUT_SEC, 0};
    setsockopt(l_nFd, SOL_SOCKET, SO_SNDTIMEO, &l_stTimeout, sizeof(l_stTimeout));
    m_nFd = l_nFd;
  }
  freeaddrinfo(l_pstList);
  if (m_nFd < 0) return fFail(("connect " + l_strWhere).c_str(), l_nErrno);
  return RESULT_OK;
}

int CCollectTarget::fDeliver(const std::vector<std::string>& l_vstrRecords, size_t* l_pnDone) {
  size_t l_nDone = 0;
  if (l_pnDone == nullptr) l_pnDone = &l_nDone;
  *l_pnDone = 0;
  m_strError.clear();
  if (m_stTo.m_eKind == ECollectKind::JSONL && m_nFd >= 0) {
    struct stat l_stStat;
    if (stat(m_stTo.m_strPath.c_str(), &l_stStat) != 0 || l_stStat.st_ino != m_inoFile) fClose();
  }
  if (m_stTo.m_eKind == ECollectKind::TCP && m_nFd >= 0 && fPeerGone()) fClose();
  if (m_nFd < 0 && fOpen() != RESULT_OK) return RESULT_FAIL;
  switch (m_stTo.m_eKind) {
    case ECollectKind::JSONL:
    case ECollectKind::STDOUT: return fDeliverStream(l_vstrRecords, l_pnDone);
    case ECollectKind::TCP: {
      const int l_nResult = fDeliverTcp(l_vstrRecords);
      if (l_nResult == RESULT_OK) *l_pnDone = l_vstrRecords.size();
      return l_nResult;
    }
    default: return fDeliverDatagrams(l_vstrRecords, l_pnDone);
  }
}

// A jsonl batch is written whole and fsync'ed, or taken back: after a failed
// write (disk full) the file is cut back to its former size, so a half line
// never stays in it.
int CCollectTarget::fDeliverStream(const std::vector<std::string>& l_vstrRecords, size_t* l_pnDone) {
  std::string& l_strBatch = m_strBatch;
  l_strBatch.clear();
  size_t l_nTotal = 0;
  for (const std::string& l_strRecord : l_vstrRecords) l_nTotal += l_strRecord.size();
  l_strBatch.reserve(l_nTotal);
  for (const std::string& l_strRecord : l_vstrRecords) l_strBatch += l_strRecord;
  struct stat l_stStat;
  const bool l_bRegular = fstat(m_nFd, &l_stStat) == 0 && S_ISREG(l_stStat.st_mode);
  size_t l_nWritten = 0;
  const bool l_bOk = fWriteAll(m_nFd, l_strBatch.data(), l_strBatch.size(), &l_nWritten) &&
                     (!l_bRegular || fdatasync(m_nFd) == 0);
  if (l_bOk) {
    *l_pnDone = l_vstrRecords.size();
    return RESULT_OK;
  }
  const int l_nErrno = errno;
  if (l_bRegular) {
    if (ftruncate(m_nFd, l_stStat.st_size) != 0) {
      // The partial batch stays; the whole batch is sent again after it.
    }
  } else {
    // A pipe cannot be taken back: the records written whole count.
    size_t l_nBytes = 0;
    for (const std::string& l_strRecord : l_vstrRecords) {
      if (l_nBytes + l_strRecord.size() > l_nWritten) break;
      l_nBytes += l_strRecord.size();
      ++*l_pnDone;
    }
  }
  return fFail(("write " + (m_stTo.m_eKind == ECollectKind::STDOUT ? std::string("standard output")
                                                                    : m_stTo.m_strPath)).c_str(),
               l_nErrno);
}

int CCollectTarget::fDeliverDatagrams(const std::vector<std::string>& l_vstrRecords, size_t* l_pnDone) {
  for (const std::string& l_strRecord : l_vstrRecords) {
    ssize_t l_nSent = -1;
    do {
      l_nSent = send(m_nFd, l_strRecord.data(), l_strRecord.size(), MSG_NOSIGNAL);
    } while (l_nSent < 0 && errno == EINTR);
    if (l_nSent < 0) return fFail("send", errno);
    ++*l_pnDone;
  }
  return RESULT_OK;
}

// Octet counting: "LEN SP MSG" per message (RFC 6587 3.4.1).
int CCollectTarget::fDeliverTcp(const std::vector<std::string>& l_vstrRecords) {
  std::string& l_strBatch = m_strBatch;
  l_strBatch.clear();
  size_t l_nTotal = 0;
  for (const std::string& l_strRecord : l_vstrRecords) l_nTotal += l_strRecord.size() + 8;
  l_strBatch.reserve(l_nTotal);
  for (const std::string& l_strRecord : l_vstrRecords) {
    l_strBatch += std::to_string(l_strRecord.size());
    l_strBatch += ' ';
    l_strBatch += l_strRecord;
  }
  size_t l_nDone = 0;
  while (l_nDone < l_strBatch.size()) {
    const ssize_t l_nSent = send(m_nFd, l_strBatch.data() + l_nDone, l_strBatch.size() - l_nDone, MSG_NOSIGNAL);
    if (l_nSent < 0 && errno == EINTR) continue;
    if (l_nSent <= 0) return fFail("send", l_nSent == 0 ? EIO : errno);
    l_nDone += static_cast<size_t>(l_nSent);
  }
  // Delivered means acknowledged by the peer: wait until nothing is left in
  // the send queue, or the connection fails.
  const auto l_tDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ACK_TIMEOUT_MS);
  int l_nWaitUs = 20;
  for (;;) {
    int l_nQueued = 0;
    if (ioctl(m_nFd, SIOCOUTQ, &l_nQueued) != 0) return fFail("send queue", errno);
    if (l_nQueued == 0) break;
    if (fPeerGone()) return fFail("connection", ECONNRESET);
    if (std::chrono::steady_clock::now() >= l_tDeadline) return fFail("acknowledgement", ETIMEDOUT);
    usleep(static_cast<useconds_t>(l_nWaitUs));
    if (l_nWaitUs < 10000) l_nWaitUs *= 2;
  }
  return RESULT_OK;
}

// The peer closed or reset the connection (a syslog receiver sends nothing,
// so anything readable is an end or an error).
bool CCollectTarget::fPeerGone() const {
  pollfd l_stPoll = {m_nFd, POLLIN | POLLRDHUP, 0};
  if (poll(&l_stPoll, 1, 0) <= 0) return false;
  if ((l_stPoll.revents & (POLLERR | POLLHUP | POLLRDHUP | POLLNVAL)) != 0) return true;
  char l_chByte = 0;
  const ssize_t l_nRead = recv(m_nFd, &l_chByte, 1, MSG_PEEK | MSG_DONTWAIT);
  return l_nRead == 0 || (l_nRead < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}
