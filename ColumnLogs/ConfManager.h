// CConfManager: one key=value configuration file held in memory, read and
// rewritten under a lock file beside it.
//
// File format, as the reader takes it (line by line):
//   - only spaces (0x20) are skipped at the start of a line; a tab is text;
//   - first character '#': comment;
//   - a line with '=': key line. The key runs up to the first '=' and is not
//     trimmed ("KEY =1" has the key "KEY "); the value follows the first run
//     of '=' up to the end of the line without its newline ("A==x=y" gives
//     "x=y"); blanks and a carriage return stay in the value. A key line with
//     nothing after its '=' run (end of file) is ignored; "KEY=" and a
//     newline store the empty value;
//   - any other line is ignored (without a section selected, headers too);
//   - a line is read in pieces of 510 characters (511 inside the selected
//     section); every further piece of a longer line counts as a line;
//   - duplicate keys are all stored in file order; lookups find the first.
// With a section selected, only a file whose first line that is not a
// comment is the header "[name]" of that section yields entries: the lines up
// to the next line containing '[' (comments aside).
//
// Ownership: the store owns every key and value text. A pointer returned by
// fGetOpt/fGetKey stays valid until that entry is updated or deleted or the
// buffers are emptied (fRemoveBuffer, fFileInfoSet, fReFresh); copy what you
// keep.
//
// Lock: "<file>_lock" exists while the store reads or rewrites the file. It
// is advisory: a lock file still present after 10 waits of one second is
// taken over.
//
// Threads: none; even lookups move list cursors.
#pragma once

#include <cstdio>
#include <ctime>

#include "ObjectBuffer.h"

class CConfManager {
 public:
  static constexpr int FILE_NAME_SIZE = 1024;  // path of the file, at most 1023 characters
  static constexpr int SUB_KEY_SIZE = 256;     // section name, at most 255 characters
  static constexpr int LINE_BUF_SIZE = 512;    // one read of the file, NUL included
  static constexpr int LINE_PIECE = 510;       // characters per read outside the selected section
  static constexpr int SECTION_LINE_PIECE = 511;  // characters per read inside it
  static constexpr int WRITE_LINE_MAX = 511;   // "key=value\n" of a rewritten line
  static constexpr int SHELL_CMD_SIZE = 512;   // the copy and move commands of a rewrite
  static constexpr int LOCK_WAITS = 10;        // waits for a present lock file before taking it over
  static constexpr int LOCK_WAIT_USEC = 1000000;

  // An empty store: both buffers created, no file.
  CConfManager();
  // Empties both buffers, destroys them and closes what is still open. The
  // lock file is not touched.
  virtual ~CConfManager();
  CConfManager(const CConfManager&) = delete;
  CConfManager& operator=(const CConfManager&) = delete;

  // Binds the store to `l_pstrFile` (and the section `l_pstrSubKey`, or none
  // when null or empty) and reads it under the lock. The buffers are emptied
  // first. Returns 1 when the file was read (possibly loading nothing), 0
  // when the file is null, its name does not fit (1023 characters) or the
  // section name does not fit (255), the lock fails, or the file cannot be
  // opened or read. Names that do not fit are refused, never cut.
  int fFileInfoSet(char* l_pstrFile, char* l_pstrSubKey);
  // Reads the file again when its modification time differs from the one
  // seen when the store last opened or closed it. 1 when it was read again;
  // 0 when unchanged or gone (entries kept), when the lock fails (entries
  // kept) or when it cannot be opened (the store is then empty).
  int fReFresh();
  // Empties both buffers, releasing every value; the next fReFresh reads the
  // file. Returns the number of added options (not yet written) released.
  int fRemoveBuffer();
  // Value of the first entry with this key in the read buffer, else in the
  // added-options buffer; null when absent or `l_pstrKey` is null.
  char* fGetOpt(char* l_pstrKey);

  // Positions: position i is the read buffer's entry with index i; when there
  // is none and i exceeds the read buffer's size n, the added-options
  // buffer's entry with index i - n. Value (or key) there, or null.
  char* fGetOpt(int l_nPosition);
  char* fGetKey(int l_nPosition);
  // Adds an option (copies of key and value) to the added-options buffer,
  // even when the key exists already; fFileWrite puts it in the file.
  // Returns its index there; 0 when the key or value is null or cannot be
  // written back as this option: a key with '=' or a newline, or starting
  // with a space or '#'; a value with a newline; with a section selected,
  // a key or value with '[' (it would end the section); -1 without memory.
  int fAddOpt(char* l_pstrKey, char* l_pstrValue);
  // Replaces the value of the first entry with this key (read buffer first,
  // then the added options). 1 replaced; 0 when absent, refused as in
  // fAddOpt (nothing changes then) or without memory.
  int fUpdateOpt(char* l_pstrKey, char* l_pstrValue);
  // Removes the first entry with this key (read buffer first). 1 removed,
  // 0 absent. Later entries with the same key stay.
  int fDeleteOpt(char* l_pstrKey);
  // Entries in the read buffer plus entries in the added-options buffer.
  int fGetOptCount();
  // Rewrites the file under the lock from the buffers (see
  // ConfManagerWrite.cpp): the new text is written to "<file>_", the old
  // file copied to "<file>_b", and "<file>_" moved into place. Returns 1
  // when the new file was put in place; 0 when the lock, the temporary file
  // or a write fails, or when the file name (beyond 161 characters or with
  // characters the shell would interpret) or a rewritten line (over 511
  // characters) does not fit: the file is then unchanged.
  int fFileWrite();

 private:
  // Mode "r": opens the file into m_pstFd; any other mode: opens the
  // temporary file "<file>_" (created 0644, emptied) into m_nWriteFd. Closes
  // the same kind first. 1 success, 0 failure ("[%s] file open failed : %s\n"
  // on standard error while g_nPrint is 1).
  int fOpen(char* l_pstrMode);
  // Closes the stream ("r") or the temporary file (other modes) and records
  // the file's modification time when it exists. Always 1.
  int fClose(char* l_pstrMode);
  // Reads the file into the read buffer; the caller holds the lock. 1 read
  // (possibly nothing loaded), -1 when it cannot be opened or read.
  int fFileRead();
  // Creates "<file>_lock" holding the process id, after waiting (at most
  // LOCK_WAITS times) while it exists. 1 locked, 0 failure (errno tells why).
  int fSyncLock();
  // Removes the lock file. Always 1.
  int fSyncUnLock();
  // Closes what is open, copies the file to "<file>_b" and moves "<file>_"
  // over it with the shell. Always 1 (the commands' statuses are not read).
  int fReName();

  // Stores one key line (leading spaces skipped) in the read buffer.
  // 1 stored or not a storable key line, -1 without memory.
  int fStoreKeyLine(char* l_pstrLine);
  // Writes the new content to the open temporary file (fFileWrite, lock
  // held, files open). 1 done, 0 refused or failed.
  int fWriteContent(int l_nHaveInput);
  // The two shell commands of fReName; 0 when they do not fit.
  int fMakeRenameCommands(char* l_pstrCopyCmd, char* l_pstrMoveCmd);
  // 0 when a key or value could not be written back as given (see fAddOpt).
  int fOptionWritable(const char* l_pstrKey, const char* l_pstrValue);
  // Releases every value of `l_pclBuffer`, then empties it; returns how
  // many entries it held.
  static int fReleaseBuffer(CObjectBuffer* l_pclBuffer);

  int m_nOptCount;                      // 0; fGetOptCount counts the buffers instead
  int m_nIsFile;                        // 1 once fFileInfoSet has read the file
  char m_strFileName[FILE_NAME_SIZE];   // path of the configuration file
  char m_strSubKey[SUB_KEY_SIZE];       // selected section; empty: none
  time_t m_tFileReadTime;               // mtime when last opened or closed; 0 after fRemoveBuffer
  FILE* m_pstFd;                        // the file while it is read; null otherwise
  int m_nWriteFd;                       // the temporary file while it is written; 0 otherwise
  CObjectBuffer* m_pclObjectBuffer;     // read buffer: entries read from the file (owned)
  CObjectBuffer* m_pclAddBuffer;        // added options not yet written (owned)
};
