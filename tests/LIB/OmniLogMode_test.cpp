// Module log-mode selection: the texts and the nine masks they give.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OmniLog.h"

namespace {

struct Masks {
  int modError, modNormal, modDebug;
  int error1, normal1, debug1;
  int error2, normal2, debug2;
  bool operator==(const Masks& o) const {
    return modError == o.modError && modNormal == o.modNormal && modDebug == o.modDebug && error1 == o.error1 &&
           normal1 == o.normal1 && debug1 == o.debug1 && error2 == o.error2 && normal2 == o.normal2 &&
           debug2 == o.debug2;
  }
};

std::ostream& operator<<(std::ostream& os, const Masks& m) {
  return os << std::hex << "mod " << m.modError << "/" << m.modNormal << "/" << m.modDebug << " all " << m.error1
            << "/" << m.normal1 << "/" << m.debug1 << " comp " << m.error2 << "/" << m.normal2 << "/" << m.debug2;
}

Masks Current() {
  return {g_nLogModERROR,   g_nLogModNORMAL,   g_nLogModDEBUG,   g_nLoggingERROR1, g_nLoggingNORMAL1,
          g_nLoggingDEBUG1, g_nLoggingERROR2, g_nLoggingNORMAL2, g_nLoggingDEBUG2};
}

constexpr int A = -1;  // all bits
const Masks kZero = {0, 0, 0, 0, 0, 0, 0, 0, 0};

struct Case {
  const char* text;
  Masks masks;
  const char* diagnostics;
};

const Case kCases[] = {
    {"NORMAL", {A, A, 0, A, A, 0, A, A, 0}, ""},
    {"ERROR", {A, 0, 0, A, 0, 0, A, 0, 0}, ""},
    {"DEBUG", {A, A, A, A, A, A, A, A, A}, ""},
    {"NOLOG", kZero, ""},
    {"INFO", kZero, ""},
    {"normal", kZero, ""},
    {"", kZero, ""},
    {"ERROR:UNI:UNI,LIB", {0x10, 0, 0, 0, 0, 0, 0x3, 0, 0}, ""},
    {"DEBUG:TCP:UNI|NOLOG:TCP:UNI", kZero, ""},
    {"DEBUG:TCP:ALL|NOLOG:TCP:UNI", {0, 0, 0, 0, 0, 0, 0x4000000, 0x4000000, 0x4000000}, ""},
    {"NORMAL:LAB,EVU:UNI", {0xC0, 0xC0, 0, 0, 0, 0, 0x3000000, 0x3000000, 0}, ""},
    {"DEBUG:LAB:16,10", {0x80, 0x80, 0x80, 0, 0, 0, 0x2000, 0x2000, 0x2000}, ""},
    {"DEBUG:LAB:1,9,12,25", {0x80, 0x80, 0x80, 0, 0, 0, 0x200C04, 0x200C04, 0x200C04}, ""},
    {"DEBUG:ALL:x|NOLOG:LAB:ALL",
     {~0x80, ~0x80, ~0x80, A, A, A, ~0x23FFFFC, ~0x23FFFFC, ~0x23FFFFC},
     ""},
    {"NORMAL:ALL:", kZero, "UNKNOWN LOG MODULE 2 : NULL\n"},
    {"NORMAL:ALL:|", {A, A, 0, A, A, 0, A, A, 0}, ""},
    {"ERROR:ALL:x|NOLOG:ALL:x", kZero, ""},
    // A later NORMAL group narrows a component named before at DEBUG.
    {"DEBUG:UNI:LIB|NORMAL:UNI:LIB", {0x10, 0x10, 0x10, 0, 0, 0, 0x2, 0x2, 0}, ""},
    {"DEBUG:UNI:LIB|ERROR:UNI:LIB", {0x10, 0x10, 0x10, 0, 0, 0, 0x2, 0, 0}, ""},
    {"ERROR:UNI", kZero, "UNKNOWN LOG MODULE 2 : NULL\n"},
    {"ERROR:UNI:", kZero, "UNKNOWN LOG MODULE 2 : NULL\n"},
    {"ERROR:", kZero, "UNKNOWN LOG MODULE 1 : NULL\n"},
    {"ERROR:UNI:ALL|NORMAL:", {0x10, 0, 0, 0, 0, 0, 0x3, 0, 0}, "UNKNOWN LOG MODULE 1 : NULL\n"},
    {"WARN:UNI:ALL|ERROR:TCP:ALL", {0x20, 0, 0, 0, 0, 0, 0x4400000, 0, 0}, "UNKNOWN LOG MODE : WARN\n"},
    {"ERROR:UNI|NORMAL:TCP:ALL", kZero, ""},
    // A later group without ":" ends the parse with the mode message.
    {"ERROR:UNI:ALL|ERROR", {0x10, 0, 0, 0, 0, 0, 0x3, 0, 0}, "UNKNOWN LOG MODE : ERROR\n"},
    {"ERROR:UNI:ALL|", {0x10, 0, 0, 0, 0, 0, 0x3, 0, 0}, ""},
    {"error:UNI:ALL", kZero, "UNKNOWN LOG MODE : error\n"},
    {"DEBUG:UNI,FOO,EVU:ALL,ZZZ", {0x50, 0x50, 0x50, 0, 0, 0, 0x1000003, 0x1000003, 0x1000003}, ""},
    {"DEBUG::ALL", kZero, ""},
};

TEST(OmniLogModeBit, TextsGiveTheirMasks) {
  COmniLog log(2, const_cast<char*>("SER"), 7);
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.text);
    std::string copy = c.text;
    g_nLogModDEBUG = 12345;  // every parse starts from all zero
    testing::internal::CaptureStderr();
    EXPECT_EQ(log.fSetLogModeBit(&copy[0]), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.diagnostics);
    EXPECT_EQ(Current(), c.masks);
    EXPECT_EQ(copy, c.text) << "the caller's text is not changed";
  }
}

TEST(OmniLogModeBit, NullTextClearsAndFails) {
  COmniLog log(2, const_cast<char*>("SER"), 7);
  std::string text = "DEBUG";
  log.fSetLogModeBit(&text[0]);
  EXPECT_EQ(log.fSetLogModeBit(nullptr), -1);
  EXPECT_EQ(Current(), kZero);
}

TEST(OmniLogModeBit, LongComponentListsAreReadWhole) {
  COmniLog log(2, const_cast<char*>("SER"), 7);
  std::string text = "DEBUG:LAB:";
  for (int i = 0; i < 100; ++i) text += "x,";
  text += "25";  // beyond 255 characters
  log.fSetLogModeBit(&text[0]);
  EXPECT_EQ(g_nLoggingDEBUG2, 0x200000);
}

}  // namespace
