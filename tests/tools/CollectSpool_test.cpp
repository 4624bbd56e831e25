// Which event files the collector takes, in which order, and what it leaves alone.
#include "CollectSpool.h"
#include "TestSupport.h"

TEST(CollectSpool, TakesFinishedFilesOldestFirstAndIngFilesNoCycleCanExtend) {
  const time_t now = 1000000;
  const time_t fresh = now - 5, quiet = now - ING_QUIET_SECONDS;
  const struct { const char* name; std::vector<ST_SPOOL_ENTRY> entries; std::vector<std::string> take;
                 int foreign, waiting; time_t recheck; } cases[] = {
      {"out_ files by time", {{"out_20240101-000002", true, fresh}, {"out_20231231-235959", true, fresh}},
       {"out_20231231-235959", "out_20240101-000002"}, 0, 0, 0},
      {"the newest ing_ file may still grow",
       {{"ing_20240101-000003", true, fresh}, {"out_20240101-000002", true, fresh}},
       {"out_20240101-000002"}, 0, 1, fresh + ING_QUIET_SECONDS},
      {"an ing_ file with a later cycle after it is taken in its place",
       {{"out_20240101-000009", true, fresh}, {"ing_20240101-000003", true, fresh}, {"ing_20240101-000010", true, fresh}},
       {"ing_20240101-000003", "out_20240101-000009"}, 0, 1, fresh + ING_QUIET_SECONDS},
      {"an ing_ file quiet long enough is taken",
       {{"ing_20240101-000003", true, quiet}}, {"ing_20240101-000003"}, 0, 0, 0},
      {"out_ before ing_ of the same second",
       {{"ing_20240101-000003", true, quiet}, {"out_20240101-000003", true, fresh}},
       {"out_20240101-000003", "ing_20240101-000003"}, 0, 0, 0},
      {"anything else is counted, never taken",
       {{"out_20240101-00000", true, quiet}, {"out_20240101_000001", true, quiet}, {"notes.txt", true, quiet},
        {"out_20240101-000002", false, quiet}, {".collect_rest_12", true, quiet}, {"xout_20240101-000003", true, quiet}},
       {}, 6, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const ST_SPOOL_PLAN plan = fgPlanSpool(c.entries, now);
    EXPECT_EQ(plan.m_vstrTake, c.take);
    EXPECT_EQ(std::make_tuple(plan.m_nForeign, plan.m_nWaiting, plan.m_tRecheck),
              std::make_tuple(c.foreign, c.waiting, c.recheck));
  }
}
