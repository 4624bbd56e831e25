// CObjectBuffer: a keyed buffer of entries built on two CObjectList lists that
// share entry indices: the key table holds (index, the buffer's own copy of
// the key) and the data list holds (index, the caller's value pointer).
//
// Invariants: every entry has one node in each list with the same index;
// indices start at 1 and are unique within the buffer; both lists keep
// insertion order, which after removals differs from index order because
// the smallest freed index is reused.
//
// Ownership: the buffer owns its key copies; it never releases a value.
//
// Threads: none. Even lookups move the key table's cursor.
#pragma once

#include "ObjectList.h"

class CObjectBuffer {
 public:
  // Both lists with order type 1 (appended at the end), duplicates allowed.
  CObjectBuffer();
  // fFreeObjects, then the key table and the data list are destroyed.
  ~CObjectBuffer();
  CObjectBuffer(const CObjectBuffer&) = delete;
  CObjectBuffer& operator=(const CObjectBuffer&) = delete;

  // Appends an entry (key copied, value pointer kept) without looking for an
  // existing one with the same key. Returns the index given to it; 0 when
  // the key is null; -1 when memory ran out (nothing is added then).
  int fObjectPut(char* l_pstrKey, void* l_pvdValue);
  // Removes the first entry (insertion order) with this key and its key
  // copy; its value is the caller's to release. 1 removed, 0 null or absent.
  int fObjectRemove(char* l_pstrKey);
  // Replaces the value of the first entry with this key (the old value is not
  // released). Returns the new value, or null when the key is null or absent.
  void* fSetObject(char* l_pstrKey, void* l_pvdValue);
  // Replaces the value of the entry with this index; the new value, or null.
  void* fSetObject(int l_nIndex, void* l_pvdValue);
  // Value of the first entry (insertion order) with this key, or null.
  void* fGetObject(char* l_pstrKey);
  // Value of the entry with this index, or null.
  void* fGetObject(int l_nIndex);
  // Key of the entry with this index (owned by the buffer), or null.
  char* fGetObjectKey(int l_nIndex);
  // Number of entries.
  int fGetSize();
  // Releases every key copy and empties both lists (values untouched); 1.
  int fFreeObjects();

 private:
  // The smallest index from 1 up to size+1 that no entry uses.
  int fGetPutIndex(char* l_pstrKey);
  // First key-table node (insertion order) whose key equals `l_pstrKey`.
  ST_OBJECTLIST_LNKLST* fFindKeyNode(const char* l_pstrKey);

  CObjectList* m_pcllData;      // index -> value pointer (the caller's)
  CObjectList* m_pcllKeyTable;  // index -> key copy (owned)
};
