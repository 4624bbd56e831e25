// String tokenizers of the common library. None keeps state of its own: the
// tokenizers that walk a string take the address of the caller's save (or
// next-position) pointer, so walks may be nested or interleaved.
#pragma once

// Splits at a run of characters from the set `l_pstrDelim` (the store splits
// key lines with "="). With `l_pstrString` null the walk continues at
// *l_ppstrSave. Writes NUL over the delimiters it consumes.
// Returns the start of the token, or null when there is nothing left (null
// string and null save pointer; the save pointer is then left alone).
// A delimiter at the start gives an empty first token; delimiters at the end
// leave *l_ppstrSave on the terminating NUL, so the next call returns one
// empty token and sets *l_ppstrSave to null.
char* Nstrtok(char* l_pstrString, const char* l_pstrDelim, char** l_ppstrSave);

// Splits at the first occurrence of the whole separator string (no runs are
// collapsed). With `l_pstrString` null the walk continues at *l_ppstrSave.
// Writes NUL over every byte of the separator found; *l_ppstrSave becomes the
// byte after it, or null when the separator does not occur (last token).
// Returns the start of the token, or null when there is nothing left.
// Two adjacent separators give an empty token; a trailing separator gives one
// final empty token. An empty separator is found at the very start: the whole
// string comes back and *l_ppstrSave stays on it, so never walk with one.
char* Nstrstrtok(char* l_pstrString, const char* l_pstrSep, char** l_ppstrSave);

// Copies the column that starts at `l_pstrSrc` and ends before `l_chDelim` (or
// at the end of the source) into `l_pstrDest`, NUL-terminated; the caller
// sizes the destination for the longest column. *l_ppstrNext becomes the
// position after the delimiter, or the terminating NUL.
// Returns the number of source characters consumed (the delimiter included);
// 0 when the source is null (nothing changed) or already at its end.
// 'a,,b' walks as "a", "", "b", then 0; 'a,' as "a", then 0.
int NstrOnetok(char* l_pstrDest, char* l_pstrSrc, char l_chDelim, char** l_ppstrNext);

// NstrOnetok with two delimiter characters: either one ends the column.
// 0 when nothing was consumed, positive otherwise.
int NstrDoubletok(char* l_pstrDest, char* l_pstrSrc, char l_chDelim1, char l_chDelim2, char** l_ppstrNext);

// 1 when the text is made of decimal digits, the first character possibly a
// '+' or '-' instead (a lone sign counts as numeric); 0 for anything else,
// the empty text and null.
int Nisdigit(const char* l_pstrString);

// Without a double quote: the text itself, unchanged. Otherwise the position
// after the first double quote, with the first blank after that quote cut to
// NUL. The closing quote stays: '"abc" def' gives 'abc"'. Null gives null.
char* NCutQmark(char* l_pstrString);
