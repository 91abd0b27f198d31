#pragma once

#include <sys/resource.h>

namespace tolvera {

// Keeps this process's memory, with tokens and sound in it, out of core dumps. The limit is 1 and not 0: the
// kernel ignores 0 where a program collects the dumps. `PR_SET_DUMPABLE` would do it too, but then the sound
// server and the desktop's portals could not look the program up. Called once, at the start of `main`; a
// debugger still works.
inline void writeNoCoreDumps() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_CORE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max > 0 ? 1 : 0;
  ::setrlimit(RLIMIT_CORE, &limit);
}

} // namespace tolvera
