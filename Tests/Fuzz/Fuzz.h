#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tolvera::test {

// Ends the fuzzer with its input if something that always holds does not.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

void fuzz(std::string_view input); // each target's own; throws nothing

} // namespace tolvera::test
