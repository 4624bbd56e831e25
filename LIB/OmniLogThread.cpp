// Threaded writer: producers queue messages, one writer thread takes them
// off the queue and writes them through the synchronous path.
//
// Stopping: the writer looks at m_nStopRequest at every wake-up. Its very
// last access to the logger is the store to m_nThreadEnded, so once
// fStopThread has seen that flag the logger and its queue may be freed while
// the (detached) thread is still returning.
#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "CommonFunc.h"
#include "OmniLog.h"

namespace {

constexpr int kBusyPauseUsec = 5000;     // after a message: a backlog drains at 200 a second
constexpr int kIdlePauseUsec = 100000;   // while the queue is empty
constexpr int kStopPollUsec = 1000;      // fStopThread's look at the writer

}  // namespace

int COmniLog::fStartThread() {
  m_pcQueue = new (std::nothrow) Queue<MessageQWriteLog*>();
  if (m_pcQueue == nullptr) {
    fprintf(stderr, "log writer queue allocation failed : writing synchronously\n");
    m_nThreadMode = 0;
    return 0;
  }
  m_nStopRequest.store(0);
  m_nThreadEnded.store(0);
  m_nThreadMode = 1;
  pthread_t l_stThread;
  const int l_nError = pthread_create(&l_stThread, nullptr, fLogThreadQ, this);
  if (l_nError != 0) {
    fprintf(stderr, "log writer thread start failed : %s\n", strerror(l_nError));
    m_nThreadEnded.store(1);
    m_nThreadMode = 0;
    delete m_pcQueue;
    m_pcQueue = nullptr;
    return 0;
  }
  pthread_detach(l_stThread);
  return 1;
}

int COmniLog::fStopThread() {
  if (m_pcQueue == nullptr) return 0;
  m_nStopRequest.store(1);
  while (m_nThreadEnded.load() == 0) fgUSleep(kStopPollUsec);

  // Messages the writer had not reached yet are written here, in order, so
  // stopping loses nothing that was accepted.
  Queue<MessageQWriteLog*>* l_pcQueue = m_pcQueue;
  m_pcQueue = nullptr;
  m_nThreadMode = 0;
  while (l_pcQueue->getCount() > 0) {
    MessageQWriteLog* l_pclMsg = l_pcQueue->pop();
    if (l_pclMsg == nullptr) continue;
    fWrite(2, l_pclMsg->fGetCollectWriteLine(), l_pclMsg->fGetCollectWriteFile(), l_pclMsg->fGetCollectWriteData());
    delete l_pclMsg;
  }
  delete l_pcQueue;
  return 1;
}

void COmniLog::fQueueMessage(int l_nLine, const char* l_pstrFileName, const char* l_pstrLogMsg) {
  // The count and the push are two lock sections: without fSetThreadChk(1)
  // concurrent producers may get a few messages past the limit.
  if (m_pcQueue->getCount() > QUEUE_LIMIT) return;  // full: dropped silently
  MessageQWriteLog* l_pclMsg = new (std::nothrow) MessageQWriteLog();
  if (l_pclMsg == nullptr) return;  // no memory: dropped
  // A file name of 64 characters or more is cut to 63, a text to 2047.
  l_pclMsg->fSetCollectWriteData(l_nLine, const_cast<char*>(l_pstrFileName), const_cast<char*>(l_pstrLogMsg));
  m_pcQueue->push(l_pclMsg);
}

void* fLogThreadQ(void* arg) {
  COmniLog* l_pclLog = static_cast<COmniLog*>(arg);
  Queue<MessageQWriteLog*>* l_pcQueue = l_pclLog->m_pcQueue;
  int l_nLastCount = 0;
  while (l_pclLog->m_nStopRequest.load() == 0) {
    fgUSleep(l_nLastCount > 0 ? kBusyPauseUsec : kIdlePauseUsec);
    if (l_pclLog->m_nStopRequest.load() != 0) break;
    l_nLastCount = l_pcQueue->getCount();
    if (l_nLastCount == 0) continue;
    MessageQWriteLog* l_pclMsgQData = l_pcQueue->pop();
    if (l_pclMsgQData == nullptr) {
      fprintf(stderr, "l_pclMsgQData===NULL");
      continue;
    }
    l_pclLog->fWrite(2, l_pclMsgQData->fGetCollectWriteLine(), l_pclMsgQData->fGetCollectWriteFile(),
                     l_pclMsgQData->fGetCollectWriteData());
    delete l_pclMsgQData;
  }
  l_pclLog->m_nThreadEnded.store(1);  // the last access to the logger
  return nullptr;
}

int COmniLog::fWrite(int l_nLogGrade, int l_nLine, char* l_pstrFileName, char* l_pstrLogMsg) {
  return fWriteGraded(l_nLogGrade, fgTextOrEmpty(l_pstrFileName), &l_nLine, fgTextOrEmpty(l_pstrLogMsg));
}

int COmniLog::fGetThreadDayTime(int l_nDayTime, char* l_pstrDayTime, int l_nMode) {
  const time_t l_tTime = (l_nDayTime > 0) ? static_cast<time_t>(l_nDayTime) : fNow();
  if (fFormatTime(l_tTime, l_pstrDayTime, l_nMode) == 0) return 0;
  return static_cast<int>(l_tTime);
}
