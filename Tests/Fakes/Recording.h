#pragma once

#include "Harness/Spectrum.h"

#include "TolveraCore/AudioCapture.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

namespace tolvera::test {

// What a backend delivered so far.
class Recording {
 public:
  static constexpr double rate = 16000; // Hz

  AudioCaptureBackend::OnSamples sink() {
    return [this](SampleBlock block) {
      const std::lock_guard lock(mutex_);
      samples_.insert(samples_.end(), block.begin(), block.end());
    };
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    samples_.clear();
  }
  [[nodiscard]] std::vector<float> samples() const {
    const std::lock_guard lock(mutex_);
    return samples_;
  }
  [[nodiscard]] double seconds() const { return static_cast<double>(samples().size()) / rate; }
  // Its last 200 ms hold the sine at about its level.
  [[nodiscard]] bool hears(double frequency, double level = 0.3) const {
    const std::vector<float> all = samples();
    constexpr std::size_t window = 3200;
    return all.size() >= window && amplitudeAt(frequency, rate, std::span(all).last(window)) > level;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<float> samples_;
};

// How far `other` lies below `frequency` in the second where it lies lowest, in decibels: that is the second
// in which no player stumbled. Whole numbers of Hz.
inline double separation(std::span<const float> heard, double frequency, double other) {
  constexpr auto window = static_cast<std::size_t>(Recording::rate);
  double best = 0;
  for (std::size_t at = 0; at + window <= heard.size(); at += window / 4) {
    const auto stretch = heard.subspan(at, window);
    const double ratio = (amplitudeAt(other, Recording::rate, stretch) + 1e-12) /
                         (amplitudeAt(frequency, Recording::rate, stretch) + 1e-12);
    best = std::min(best, 20 * std::log10(ratio));
  }
  return best;
}

// How many entries a directory has, as of descriptors or threads under /proc/self.
inline std::size_t entries(const char* directory) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

} // namespace tolvera::test
