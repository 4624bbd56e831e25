// The five compiled-pattern slots that a watched log (ST_LOGFILE_INFO) and a
// text rule (ST_CHAR_PATTERN_LIST) hold, and the reading of a pattern value
// into them. Both registries go through these functions, so the entry
// grammar and the slot ownership rule live in one place.
//
// Ownership: a slot owns the CStrPattern it points to. A slot is either null
// or holds an object whose text compiled; a text that does not compile leaves
// the slot null (its text stays in the record and never matches).
#pragma once

class CStrPattern;

constexpr int PATTERN_SLOT_CNT = 5;        // slots per record
constexpr int PATTERN_TEXT_SIZE = 2048;    // one slot text with its NUL: at most 2047 characters
constexpr int PATTERN_NO_GRADE = -1;       // grade of a slot that has none

// Compiles `l_pstrPattern` into `*l_ppclSlot`, first releasing what the slot
// held. 1 when it compiled; 0 when it did not, when the text is null or when
// memory is exhausted; the slot is then null.
int fgPatternSlotComp(CStrPattern** l_ppclSlot, char* l_pstrPattern);

// Releases the compiled pattern of one slot, if any, and sets the slot null.
void fgPatternSlotClear(CStrPattern** l_ppclSlot);

// Releases all PATTERN_SLOT_CNT slots of a record.
void fgPatternSlotsRelease(CStrPattern** l_vpclSlot);

// Empties the slot texts. Stored texts occupy slots 0 to n-1 with no gap
// (fgFillPatternSlots below is the only writer), so the first empty text ends
// them and the texts after it are not touched: a record's unused texts,
// never read or written, then cost no resident memory (RecordPool.h).
void fgPatternSlotsClearTexts(char (*l_vstrText)[PATTERN_TEXT_SIZE]);

// Reads a pattern value into empty slots. The value is a sequence of entries
// divided by the tilde separator; an entry is "grade{|}pattern" or "pattern"
// ({|} the bar separator; only the first bar of an entry divides).
// A pattern of 1 to 2047 characters is copied into the next slot text and
// compiled into the same slot; when the entry had a grade text and
// `l_vnGrade` is not null, the slot's grade becomes its decimal value (like
// strtol base 10, empty or non-numeric text gives 0, clamped to int). Empty
// patterns are passed over, longer ones are passed over and make the result
// 0; neither uses a slot. Entries after the fifth stored pattern are ignored.
// A null value reads as the empty value. `*l_pnStored` (may be null) receives
// the number of stored patterns. Returns 1, or 0 when a pattern was too long.
int fgFillPatternSlots(const char* l_pstrValue, CStrPattern** l_vpclSlot,
                       char (*l_vstrText)[PATTERN_TEXT_SIZE], int* l_vnGrade, int* l_pnStored);
