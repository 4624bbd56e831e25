// The readable notation of the two configuration separators, shared by every
// subcommand of the companion tool: "{~}" stands for the tilde separator
// (bytes 03 1F 7E) and "{|}" for the bar separator (bytes 03 1F 7C).
//
// The conversion is plain text replacement in one left-to-right pass, so
// fgEncodeSeparators(fgDecodeSeparators(x)) == x for any x that holds no
// literal "{~}" or "{|}" text, and fgDecodeSeparators(fgEncodeSeparators(y))
// == y for any y that holds no raw separator bytes. No other byte changes.
#pragma once

#include <string>

// "{~}" -> 03 1F 7E, "{|}" -> 03 1F 7C.
std::string fgEncodeSeparators(const std::string& l_strReadable);
// 03 1F 7E -> "{~}", 03 1F 7C -> "{|}".
std::string fgDecodeSeparators(const std::string& l_strBytes);
// true when the text still holds the readable notation (a configuration
// value written with "{~}" where the agent needs the real bytes).
bool fgHasReadableNotation(const std::string& l_strText);
// true when the text holds the readable notation or a '~' that is not the
// last byte of a tilde separator: a value typed with a plain tilde, which the
// agent cannot divide.
bool fgHasSeparatorMistake(const std::string& l_strText);
// The text with the carriage return of every CRLF line end dropped (and one
// at the very end): a configuration saved by a Windows editor. Other
// carriage returns stay.
std::string fgDropLineEndReturns(const std::string& l_strText);
