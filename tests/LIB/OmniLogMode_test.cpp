// Module log-mode selection (not used by the agent): the texts, the nine masks they give, the diagnostics.
#include <array>

#include "TestSupport.h"

// Module masks ERROR/NORMAL/DEBUG, all-or-nothing masks, component masks.
using Masks = std::array<int, 9>;

Masks Current() {
  return {g_nLogModERROR,   g_nLogModNORMAL,   g_nLogModDEBUG,   g_nLoggingERROR1, g_nLoggingNORMAL1,
          g_nLoggingDEBUG1, g_nLoggingERROR2, g_nLoggingNORMAL2, g_nLoggingDEBUG2};
}

constexpr int A = -1;  // all bits
const Masks kZero = {};

TEST(OmniLogModeBit, TextsGiveTheirMasks) {
  struct Case { std::string text; Masks masks; std::string diagnostics; };
  std::string longList = "DEBUG:LAB:";
  for (int i = 0; i < 100; ++i) longList += "x,";
  const std::vector<Case> cases = {
      {"NORMAL", {A, A, 0, A, A, 0, A, A, 0}, ""}, {"ERROR", {A, 0, 0, A, 0, 0, A, 0, 0}, ""},
      {"DEBUG", {A, A, A, A, A, A, A, A, A}, ""},
      {"NORMAL:LAB,EVU:UNI", {0xC0, 0xC0, 0, 0, 0, 0, 0x3000000, 0x3000000, 0}, ""},
      {"DEBUG:LAB:1,9,12,25", {0x80, 0x80, 0x80, 0, 0, 0, 0x200C04, 0x200C04, 0x200C04}, ""},
      {"DEBUG:ALL:x|NOLOG:LAB:ALL", {~0x80, ~0x80, ~0x80, A, A, A, ~0x23FFFFC, ~0x23FFFFC, ~0x23FFFFC}, ""},
      // A later group narrows a component named before at DEBUG.
      {"DEBUG:UNI:LIB|NORMAL:UNI:LIB", {0x10, 0x10, 0x10, 0, 0, 0, 0x2, 0x2, 0}, ""},
      {"DEBUG:UNI,FOO,EVU:ALL,ZZZ", {0x50, 0x50, 0x50, 0, 0, 0, 0x1000003, 0x1000003, 0x1000003}, ""},
      {"ERROR:UNI", kZero, "UNKNOWN LOG MODULE 2 : NULL\n"},
      {"ERROR:UNI:ALL|NORMAL:", {0x10, 0, 0, 0, 0, 0, 0x3, 0, 0}, "UNKNOWN LOG MODULE 1 : NULL\n"},
      {"WARN:UNI:ALL|ERROR:TCP:ALL", {0x20, 0, 0, 0, 0, 0, 0x4400000, 0, 0}, "UNKNOWN LOG MODE : WARN\n"},
      // A later group without ":" ends the parse with the mode message.
      {"ERROR:UNI:ALL|ERROR", {0x10, 0, 0, 0, 0, 0, 0x3, 0, 0}, "UNKNOWN LOG MODE : ERROR\n"},
      // A component list beyond 255 characters is read whole.
      {longList + "25", {0x80, 0x80, 0x80, 0, 0, 0, 0x200000, 0x200000, 0x200000}, ""},
  };
  COmniLog log(2, const_cast<char*>("SER"), 7);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    std::string copy = c.text;
    g_nLogModDEBUG = 12345;  // every parse starts from all zero
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(log.fSetLogModeBit(&copy[0]), 1); }), c.diagnostics);
    EXPECT_EQ(Current(), c.masks);
    EXPECT_EQ(copy, c.text) << "the caller's text is not changed";
  }
  EXPECT_EQ(log.fSetLogModeBit(nullptr), -1);
  EXPECT_EQ(Current(), kZero);
}
