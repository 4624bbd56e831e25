// CCycleBuffers: the one owner of the buffers of a gather cycle (and of a
// replay turn): the line accumulator, in which the pieces of a line are
// joined, and the column buffer, in which the column evaluation cuts the
// line. The two keep the names by which the evaluation, the companion tool
// and the tests reach them (l_pstrLineBuf; CColumnLogger::m_pstrOriginalBuf
// of m_lOriginalBufSize bytes); nothing but this class allocates, grows or
// releases them during a cycle.
//
// Invariant, from a successful fStart to fRelease: both buffers exist and
// have the same capacity, fCapacity() bytes; the accumulator holds
// LINE_RESERVED_BYTES zero bytes, then the text (fLen() bytes, NUL bytes of
// the log included) and a NUL. fMakeRoom keeps the capacity above the
// reserved bytes, the text, a stop delimiter and a NUL, so the column buffer
// always takes the whole line. Between cycles both are null. A failed
// allocation leaves the buffers as they were.
//
// Threads: main thread only, as the gatherer.
#pragma once

class CCycleBuffers {
 public:
  // `l_rpstrColumns` and `l_rlColumnSize` are the gatherer's column buffer
  // fields; they must outlive this object.
  CCycleBuffers(char*& l_rpstrColumns, long& l_rlColumnSize);
  ~CCycleBuffers();
  CCycleBuffers(const CCycleBuffers&) = delete;
  CCycleBuffers& operator=(const CCycleBuffers&) = delete;

  // Releases what is held, then allocates both buffers of `l_lCapacity`
  // bytes, zero-filled, with an empty text. 1, or 0 when memory is exhausted
  // (nothing is held then).
  int fStart(long l_lCapacity);
  // Makes room for `l_lMore` more bytes of text: when the capacity left
  // after the text and 30 bytes is not more than that, both buffers grow to
  // the capacity plus `l_lMore`, at least doubling (a line of megabytes read
  // in 255-byte pieces is not copied over and over); the text is kept.
  // 1, or 0 when memory is exhausted. Inline: it runs for every piece read.
  int fMakeRoom(long l_lMore) { return m_lCapacity - ROOM_SLACK - m_lLen > l_lMore ? 1 : fGrow(l_lMore); }
  // Frees both buffers and sets their fields null; 0 capacity and text.
  void fRelease();

  long fCapacity() const { return m_lCapacity; }
  // Length of the text in the accumulator; the caller that writes the text sets it.
  long fLen() const { return m_lLen; }
  void fSetLen(long l_lLen) { m_lLen = l_lLen; }

 private:
  static constexpr long ROOM_SLACK = 30;  // kept free besides the reserved bytes and the text

  int fGrow(long l_lMore);

  char*& m_rpstrColumns;
  long& m_rlColumnSize;
  long m_lCapacity = 0;
  long m_lLen = 0;
};
