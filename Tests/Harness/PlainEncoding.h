#pragma once

#include "Platform/URLSession.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tolvera::test {

// The wire format of samples in its plainest form, with a branch for each case. Tests and the benchmark
// compare the program's loop with it.
inline platform::Data plainEncode(std::span<const float> samples) {
  platform::Data bytes;
  bytes.reserve(2 * samples.size());
  for (const float sample : samples) {
    std::int16_t value = 0;
    if (!(sample < 1.0F)) {
      value = 32767;
    } else if (sample < -1.0F) {
      value = -32768;
    } else if (sample < 0.0F) {
      value = static_cast<std::int16_t>(sample * 32768.0F);
    } else {
      value = static_cast<std::int16_t>(sample * 32767.0F);
    }
    bytes.push_back(static_cast<std::byte>(value & 0xFF));
    bytes.push_back(static_cast<std::byte>((value >> 8) & 0xFF));
  }
  return bytes;
}

} // namespace tolvera::test
