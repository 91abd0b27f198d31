#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tolvera::bench {

// When each word of a known sentence ends in its recording, in seconds from the start. Found before the
// measurement by forced alignment: a decoder that knows the words and has only to place them. Throws if it
// cannot.
std::vector<double> wordEnds(std::span<const std::int16_t> samples, const std::vector<std::string>& words);

} // namespace tolvera::bench
