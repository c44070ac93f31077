// The reproducibility mode: one process-wide word read from ZVA_CBWR.
#pragma once

namespace zva {
int cbwr_mode();          // 1 to 10; reads the environment under lib_lock
int cbwr_mode_nolock();   // the same, for a caller that holds lib_lock
}  // namespace zva
