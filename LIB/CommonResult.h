// The result values of every operation of the system: ints, no exceptions.
#pragma once

constexpr int RESULT_OK = 1;       // success
constexpr int RESULT_REFUSED = 0;  // refusal or empty outcome
constexpr int RESULT_FAIL = -1;    // null argument, missing record, no memory, I/O failure
