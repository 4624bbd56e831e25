// DEFER_EVENTS=1: events delayed, never dropped.
//
// Without the key a log's turn reads to the end of the file, evaluates lines
// only until it has written more than 100 events (the rest are read and
// passed over for good), and drops the events it cannot write; the offset
// moves past all of it. With the key:
//   - a turn that reaches the 100-event ceiling stops after that line and
//     keeps its offset at the start of the next one, so the next cycle goes on
//     from there (the ceiling then limits events per cycle, not in all);
//   - a turn whose events cannot be written (output directory missing, not
//     writable, disk full) stops and keeps its offset at the start of the
//     first line whose events were not written, so those lines are evaluated
//     again once the directory is back.
// Events are written at line ends (when half the event buffer is used, at the
// ceiling and at the turn's end), so a line whose events were written is never
// evaluated again; only a single line whose events overflow half the buffer
// can be written in two parts, and, if the second part fails, is evaluated
// again whole.
#pragma once

// True when the configuration sets DEFER_EVENTS to "1"; set once at start-up
// by the entry, read by the gather cycle.
extern bool g_bDeferEvents;

// The value of DEFER_EVENTS that turns deferral on.
constexpr const char* DEFER_EVENTS_ON = "1";
