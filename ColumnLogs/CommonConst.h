// Result values and the fixed limits of the agent, each named once with the
// reason it has the value it has.
#pragma once

#include "CommonResult.h"

// Fixed text buffer sizes of the records (NUL included).
constexpr int NAME_BUF_SIZE = 512;      // names and paths
constexpr int PATTERN_BUF_SIZE = 2048;  // patterns and messages
constexpr int SHORT_BUF_SIZE = 256;
constexpr int TINY_BUF_SIZE = 64;

// Gather cycle.
constexpr int OUTPUT_BACKLOG_LIMIT = 200;   // entries waiting in OUTPUT_PATH that stop a cycle
constexpr int READ_PIECE_SIZE = 256;        // one fgets piece: at most 255 characters
constexpr int LINE_RESERVED_BYTES = 28;     // zero bytes in front of the line text
constexpr int READ_THROTTLE_PIECES = 800;   // pieces read before a pause
constexpr int READ_THROTTLE_USEC = 200000;  // the pause after READ_THROTTLE_PIECES
constexpr int FAULT_SEND_LIMIT = 100;       // events per watched log and cycle
constexpr int MAX_WATCHED_LOGS = 19;        // LOG01_ .. LOG19_
constexpr int MAX_LINE_PATTERNS = 5;        // pattern slots per record
constexpr int FAULT_LEVELS = 5;             // line-rate thresholds for levels 0 to 4

// Main loop.
constexpr int MAIN_LOOP_USEC = 1000000;  // one turn per second
constexpr int HEARTBEAT_SECONDS = 10;    // ./LoggerAlive is re-created after more than this

// The two configuration separators (three bytes each).
#define SEP_TILDE "\x03\x1f\x7e"
#define SEP_BAR "\x03\x1f\x7c"
constexpr int SEP_LEN = 3;

// Codes of the program's diagnostic records (grades: OmniLog.h).
constexpr const char* LOG_CODE_GATHER = "LOG";    // the gatherer: start-up, loading, cycles, evaluation
constexpr const char* LOG_CODE_REGISTRY = "LLB";  // the log file registry
