// One message waiting in the log writer's queue: the text and the source
// position given by the caller. Created by the producer, owned by the queue
// while queued, deleted by the writer thread once written.
#pragma once

class MessageQWriteLog {
 public:
  static constexpr int DATA_SIZE = 2048;  // text: at most 2047 characters
  static constexpr int FILE_SIZE = 64;    // source file name: at most 63 characters

  MessageQWriteLog();

  // Stores the position and the text; a null text or name is stored empty.
  // A text longer than 2047 or a name longer than 63 characters is cut to
  // that length. Returns 1 when both fitted whole, 0 when one was cut.
  int fSetCollectWriteData(int l_nLine, char* l_pstrFileName, char* l_pstrCollectData);
  char* fGetCollectWriteData();  // the text, owned by the message
  int fGetCollectWriteLine();
  char* fGetCollectWriteFile();  // the source file name, owned by the message

 private:
  char m_strCollectData[DATA_SIZE];  // the message text, NUL-terminated
  int m_nLine;                        // caller's source line; 0 from fLogWrite(grade, code, msg)
  char m_strFileName[FILE_SIZE];      // caller's source file; "src" from fLogWrite(grade, code, msg)
};
