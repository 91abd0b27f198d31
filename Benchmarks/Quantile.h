#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace tolvera::bench {

// The value that a share of the values, 0 to 1, does not exceed. NaN if there are none.
inline double quantile(std::vector<double> values, double share) {
  if (values.empty()) return NAN;
  std::ranges::sort(values);
  return values[static_cast<std::size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

} // namespace tolvera::bench
