// CRecordPool: zero-filled records of a page or more, taken from runs of
// anonymous zero pages instead of the heap, so that the pages of a record
// that are never written stay out of the resident set.
//
// Why: the text rule and watched-log records carry five 2048-byte pattern
// texts of which a rule uses one, briefly. On the heap a zero-filled record
// is resident in full (the zero fill writes every page); here only the pages
// that its fields are written in become resident.
//
// Layout: each record gets a slot of whole pages and sits in it so that its
// last 16 bytes (the two list links that end every list record, see
// OrderedList.h) fall on the first bytes of the next slot, whose first page
// already holds the next record's leading fields. A record whose middle is
// never written thus costs one resident page. Consecutive records are also
// shifted by a cache line each (up to kColors lines, as far as the slot's
// spare bytes allow), so that a walk over the records does not find every
// record's leading fields and links in the same cache set. A slab holds
// kSlotsPerSlab slots plus one page for the links of its last record.
//
// Ownership: the pool owns its slabs; fAlloc hands out a record that stays
// valid until it is given back with fFree or the pool is destroyed. When the
// last record is given back, the slabs are returned to the system.
//
// Threads: none; one thread uses a pool at a time.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

// Records of at least this size are worth a pool (OrderedList.h). The page
// size of the hosts the agent runs on; on a host with larger pages the layout
// stays correct and saves less.
constexpr size_t RECORD_POOL_PAGE = 4096;

template <typename Rec>
class CRecordPool {
 public:
  static constexpr size_t kPage = RECORD_POOL_PAGE;
  static constexpr size_t kLinkBytes = 2 * sizeof(void*);  // m_pstNext, m_pstPrev end every record
  static constexpr size_t kSlotBytes = (sizeof(Rec) + kPage - 1) / kPage * kPage;
  static constexpr size_t kRecOffset = kSlotBytes - sizeof(Rec) + kLinkBytes;
  static constexpr size_t kLine = 64;
  // A record may sit up to (kColors - 1) lines further into its slot than the
  // one before it only as far as the spare bytes of a slot let the next
  // record start after the previous one's links.
  static constexpr size_t kColors = std::min<size_t>(16, (kSlotBytes - sizeof(Rec)) / kLine + 1);
  static constexpr int kSlotsPerSlab = 16;
  static constexpr size_t kSlabBytes = kSlotBytes * kSlotsPerSlab + kPage;
  static_assert(sizeof(Rec) >= kPage, "small records belong on the heap");
  static_assert(kRecOffset % alignof(Rec) == 0, "records must stay aligned in their slots");
  static_assert(kRecOffset >= sizeof(void*), "the first slot keeps the slab chain in front of its record");
  static_assert(kLine % alignof(Rec) == 0, "a shift by whole lines keeps records aligned");
  static_assert(kLine * (kColors - 1) <= kSlotBytes - sizeof(Rec), "records of one slab never overlap");

  CRecordPool() = default;
  ~CRecordPool() { fReleaseSlabs(); }
  CRecordPool(const CRecordPool&) = delete;
  CRecordPool& operator=(const CRecordPool&) = delete;

  // A zero-filled record, or null when no memory could be mapped.
  Rec* fAlloc() {
    if (m_pvFree != nullptr) {
      // A slot given back earlier: written before, so it is cleared here.
      void* l_pvSlot = m_pvFree;
      memcpy(&m_pvFree, l_pvSlot, sizeof(m_pvFree));
      memset(l_pvSlot, 0, sizeof(Rec));
      ++m_lLive;
      return static_cast<Rec*>(l_pvSlot);
    }
    if (m_pchSlab == nullptr || m_nNextSlot == kSlotsPerSlab) {
      void* l_pvSlab = mmap(nullptr, kSlabBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (l_pvSlab == MAP_FAILED) return nullptr;
      char* l_pchSlab = static_cast<char*>(l_pvSlab);
      // The chain of slabs lives in front of the first record, in bytes no record uses.
      memcpy(l_pchSlab, &m_pchSlab, sizeof(m_pchSlab));
      m_pchSlab = l_pchSlab;
      m_nNextSlot = 0;
    }
    const size_t l_nSlot = static_cast<size_t>(m_nNextSlot++);
    char* l_pchRec = m_pchSlab + kSlotBytes * l_nSlot + kRecOffset + kLine * (l_nSlot % kColors);
    ++m_lLive;
    return reinterpret_cast<Rec*>(l_pchRec);  // fresh anonymous pages read as zero
  }

  // Gives a record from fAlloc back (null is ignored).
  void fFree(Rec* l_pstRec) {
    if (l_pstRec == nullptr) return;
    memcpy(static_cast<void*>(l_pstRec), &m_pvFree, sizeof(m_pvFree));
    m_pvFree = l_pstRec;
    if (--m_lLive == 0) fReleaseSlabs();
  }

  // Records handed out and not given back.
  long fLiveCount() const { return m_lLive; }

 private:
  void fReleaseSlabs() {
    while (m_pchSlab != nullptr) {
      char* l_pchNext = nullptr;
      memcpy(&l_pchNext, m_pchSlab, sizeof(l_pchNext));
      munmap(m_pchSlab, kSlabBytes);
      m_pchSlab = l_pchNext;
    }
    m_pvFree = nullptr;
    m_nNextSlot = 0;
    m_lLive = 0;
  }

  char* m_pchSlab = nullptr;  // newest slab; each slab's first bytes hold the one before
  int m_nNextSlot = 0;        // next unused slot of the newest slab
  void* m_pvFree = nullptr;   // slots given back; each holds the next one in its first bytes
  long m_lLive = 0;           // records handed out
};
