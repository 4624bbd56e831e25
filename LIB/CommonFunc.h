// Small file and process functions of the common library, and the thin
// system-call layer the rest of the agent goes through.
#pragma once

#include <cstddef>

// The one sleep of the system: waits `l_nUSec` microseconds with select()
// and no descriptors (a value of 0 or less means 1000). A signal ends the
// wait early. Returns 1.
int fgUSleep(int l_nUSec);

// Makes sure the directory exists, creating missing ancestors (mode 0770).
// Returns 1 when it exists or was created, -1 otherwise; a failed mkdir is
// reported as "mkdir fail[%s][%s]" on standard error.
int fgMakeDirectory(char* l_pstrDPath);

// First entry of the working directory (hidden names skipped) matching the
// wildcard pattern, copied into `l_pstrFileName` (at least 256 bytes).
// Returns 1 when found, 0 otherwise.
int fgFindFileName(char* l_pstrPattern, char* l_pstrFileName);

// 1 when the text is accepted as a dotted IPv4 address, else 0.
int fgIPCheck(char* l_pstrIP);

// Copies `src` into `dst` of `size` bytes, always NUL-terminated.
// Returns 1 when it fitted whole, 0 when it was cut (or size is 0).
int fgStrCopy(char* dst, size_t size, const char* src);

// The text, or "" for null.
inline const char* fgTextOrEmpty(const char* l_pstrText) { return l_pstrText == nullptr ? "" : l_pstrText; }

// 1 when the text can stand unquoted as one word of a shell command and
// means only itself there: letters, digits, bytes from 0x80 and
// "/._-+,@%:=". 0 for any other character (blanks, quotes, "$", ";", ...).
int fgShellWord(const char* l_pstrText);

// open() with O_CLOEXEC added, retried on EINTR. Returns the descriptor or -1
// with errno kept from the failing call.
int fgOpen(const char* path, int flags, int mode);

// Replaces the file `path` with `size` bytes of `text` atomically: a
// temporary file "<path>.tmp" beside it is written whole with mode `mode`
// (set explicitly, whatever the umask), then renamed over `path`. With
// `sync`, the temporary file is synced before the rename and the directory
// after it, so the new content survives a crash. 1 done; -1 failed, with
// errno from the failing call and the temporary file removed.
int fgReplaceFile(const char* path, const char* text, size_t size, int mode, bool sync);
