// Whole configuration files through the store and the monitoring loader: the
// fuzzed bytes are written to a temporary file, read by
// CConfManager::fFileInfoSet (without and with a section selected), looked up
// by key and position, and then loaded into the registries by
// CColumnLogger::fLoadConfInfo the way the agent does at start-up.
#include <cstdint>
#include <cstring>
#include <string>

#include "ColumnLogger.h"
#include "ConfManager.h"
#include "FuzzSupport.h"

namespace {

// Every stored entry can be found again by its key: the lookup returns the
// value of the first entry with that key, which exists.
void CheckLookups(CConfManager& store) {
  const int count = store.fGetOptCount();
  FUZZ_CHECK(count >= 0);
  for (int i = 1; i <= count; ++i) {
    char* key = store.fGetKey(i);
    if (key == nullptr) continue;  // positions follow the buffers' indices, which may have gaps
    FUZZ_CHECK(store.fGetOpt(i) != nullptr);
    FUZZ_CHECK(store.fGetOpt(key) != nullptr);
    FUZZ_CHECK(strchr(key, '\n') == nullptr);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = fuzzsupport::ScratchDir() + "/agent.conf";
  if (!fuzzsupport::WriteWhole(path, data, size)) return 0;
  std::vector<char> file = fuzzsupport::Writable(path);

  {
    CConfManager store;
    FUZZ_CHECK(store.fFileInfoSet(file.data(), nullptr) == 1);
    CheckLookups(store);
    char section[] = "GENERAL";
    FUZZ_CHECK(store.fFileInfoSet(file.data(), section) == 1);
    CheckLookups(store);
    // Unchanged file: nothing to read again.
    FUZZ_CHECK(store.fReFresh() == 0);
  }

  CColumnLogger logger;
  if (logger.fSetConfManager(file.data()) == 1) logger.fLoadConfInfo();
  // The lock is released whatever the file held.
  FUZZ_CHECK(access((path + "_lock").c_str(), F_OK) != 0);
  return 0;
}
