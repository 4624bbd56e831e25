// Where the collector sends events: the value of COLLECT_TO and the open
// connection or file behind it.
//
//   jsonl:PATH              one JSON object per line appended to PATH, fsync'ed
//                           before a batch counts as delivered ("jsonl:-": standard output)
//   syslog:unix:SOCKET      RFC 5424 datagrams to a local socket (/dev/log)
//   syslog:udp:HOST:PORT    RFC 5424 datagrams (RFC 5426); a lost datagram is not seen
//   syslog:tcp:HOST:PORT    RFC 5424 with octet-counting framing (RFC 6587); a batch
//                           counts as delivered once the peer's TCP has acknowledged every byte
// HOST is a name, an IPv4 address or an IPv6 address in brackets ([::1]).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "CollectFormat.h"
#include "ConfVocabulary.h"

// The configuration key the collector reads beside OUTPUT_PATH (the agent
// ignores it): KEY_COLLECT_TO of the configuration's vocabulary.
constexpr const char* COLLECT_TO_KEY = KEY_COLLECT_TO;

enum class ECollectKind { JSONL, STDOUT, UNIX, UDP, TCP };

struct ST_COLLECT_TO {
  ECollectKind m_eKind = ECollectKind::UNIX;
  std::string m_strPath;  // JSONL: the file; UNIX: the socket
  std::string m_strHost;  // UDP, TCP: host name or address (without brackets)
  int m_nPort = 0;        // UDP, TCP: 1 to 65535
};

// Reads a COLLECT_TO value. Returns 1 and fills *l_pstTo, or 0 with the
// reason in *l_pstrReason (for the check tool and the collector's start-up).
int fgParseCollectTo(const std::string& l_strValue, ST_COLLECT_TO* l_pstTo, std::string* l_pstrReason);

class CCollectTarget {
 public:
  explicit CCollectTarget(const ST_COLLECT_TO& l_stTo);
  ~CCollectTarget();
  CCollectTarget(const CCollectTarget&) = delete;
  CCollectTarget& operator=(const CCollectTarget&) = delete;

  // The record for one event: a JSON line, or a syslog message without framing.
  std::string fFormat(const ST_COLLECT_EVENT& l_stEvent, const ST_COLLECT_ORIGIN& l_stOrigin) const;

  // Delivers the records in order, opening or re-opening the file or
  // connection as needed. Returns 1 when all were delivered, -1 otherwise;
  // *l_pnDone is then the number of leading records that are known delivered
  // (0 for jsonl and tcp, whose batches are all or nothing) and fError()
  // says why. A jsonl file that was renamed or removed (log rotation) is
  // opened anew under its name.
  int fDeliver(const std::vector<std::string>& l_vstrRecords, size_t* l_pnDone);

  // Why the last fDeliver failed ("connect 127.0.0.1:514 : Connection refused").
  const std::string& fError() const { return m_strError; }

  // Closes the file or connection (the next fDeliver opens it again).
  void fClose();

 private:
  int fOpen();
  int fDeliverStream(const std::vector<std::string>& l_vstrRecords, size_t* l_pnDone);
  int fDeliverDatagrams(const std::vector<std::string>& l_vstrRecords, size_t* l_pnDone);
  int fDeliverTcp(const std::vector<std::string>& l_vstrRecords);
  int fFail(const char* l_pstrWhat, int l_nErrno);
  bool fPeerGone() const;

  ST_COLLECT_TO m_stTo;
  int m_nFd = -1;
  ino_t m_inoFile = 0;     // JSONL: inode of the open file, to notice rotation
  std::string m_strError;
  std::string m_strBatch;  // the bytes of one batch; kept between batches so its pages stay mapped
};
