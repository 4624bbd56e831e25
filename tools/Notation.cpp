#include "Notation.h"

#include "CommonConst.h"

namespace {

const std::string READABLE_TILDE = "{~}";
const std::string READABLE_BAR = "{|}";
const std::string BYTES_TILDE(SEP_TILDE, SEP_LEN);
const std::string BYTES_BAR(SEP_BAR, SEP_LEN);

// Replaces every `l_strFromA` by `l_strToA` and every `l_strFromB` by
// `l_strToB` in one pass (all four are three bytes long), so that a
// replacement is never looked at again.
std::string fReplaceBoth(const std::string& l_strText, const std::string& l_strFromA, const std::string& l_strToA,
                         const std::string& l_strFromB, const std::string& l_strToB) {
  std::string l_strOut;
  l_strOut.reserve(l_strText.size());
  size_t l_nPos = 0;
  while (l_nPos < l_strText.size()) {
    if (l_strText.compare(l_nPos, l_strFromA.size(), l_strFromA) == 0) {
      l_strOut += l_strToA;
      l_nPos += l_strFromA.size();
    } else if (l_strText.compare(l_nPos, l_strFromB.size(), l_strFromB) == 0) {
      l_strOut += l_strToB;
      l_nPos += l_strFromB.size();
    } else {
      l_strOut += l_strText[l_nPos++];
    }
  }
  return l_strOut;
}

}  // namespace

std::string fgEncodeSeparators(const std::string& l_strReadable) {
  return fReplaceBoth(l_strReadable, READABLE_TILDE, BYTES_TILDE, READABLE_BAR, BYTES_BAR);
}

std::string fgDecodeSeparators(const std::string& l_strBytes) {
  return fReplaceBoth(l_strBytes, BYTES_TILDE, READABLE_TILDE, BYTES_BAR, READABLE_BAR);
}

bool fgHasReadableNotation(const std::string& l_strText) {
  return l_strText.find(READABLE_TILDE) != std::string::npos || l_strText.find(READABLE_BAR) != std::string::npos;
}

bool fgHasSeparatorMistake(const std::string& l_strText) {
  if (fgHasReadableNotation(l_strText)) return true;
  for (size_t l_nPos = l_strText.find('~'); l_nPos != std::string::npos; l_nPos = l_strText.find('~', l_nPos + 1)) {
    if (l_nPos + 1 < SEP_LEN || l_strText.compare(l_nPos + 1 - SEP_LEN, SEP_LEN, BYTES_TILDE) != 0) return true;
  }
  return false;
}

std::string fgDropLineEndReturns(const std::string& l_strText) {
  std::string l_strOut;
  l_strOut.reserve(l_strText.size());
  for (size_t l_nPos = 0; l_nPos < l_strText.size(); ++l_nPos) {
    const bool l_bLineEnd = l_nPos + 1 == l_strText.size() || l_strText[l_nPos + 1] == '\n';
    if (l_strText[l_nPos] == '\r' && l_bLineEnd) continue;
    l_strOut += l_strText[l_nPos];
  }
  return l_strOut;
}
