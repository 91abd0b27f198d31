#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

// Tones, and what is in a recording: for tests that listen.
namespace tolvera::test {

struct Tone {
  double amplitude = 0; // 1 for a full-scale sine
  double residual =
      0; // what is left without the sine, relative to it, in decibels; a gap or a jump shows here
};

inline std::vector<float> sine(double frequency, double amplitude, double rate, double seconds) {
  std::vector<float> samples(static_cast<std::size_t>(rate * seconds));
  const double step = 2 * std::numbers::pi * frequency / rate;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(amplitude * std::sin(step * static_cast<double>(i)));
  }
  return samples;
}

// The sine of `frequency` in the samples: the least-squares fit of a·cos + b·sin.
inline Tone toneAt(double frequency, double rate, std::span<const float> samples) {
  const double step = 2 * std::numbers::pi * frequency / rate;
  double cc = 0, ss = 0, cs = 0, xc = 0, xs = 0, xx = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double c = std::cos(step * static_cast<double>(i));
    const double s = std::sin(step * static_cast<double>(i));
    const double x = samples[i];
    cc += c * c;
    ss += s * s;
    cs += c * s;
    xc += x * c;
    xs += x * s;
    xx += x * x;
  }
  const double determinant = cc * ss - cs * cs;
  if (determinant == 0) return {};
  const double a = (xc * ss - xs * cs) / determinant;
  const double b = (xs * cc - xc * cs) / determinant;
  const double rest = std::max(xx - a * xc - b * xs, 0.0) / static_cast<double>(samples.size());
  return {std::hypot(a, b), 10 * std::log10((rest + 1e-30) / ((a * a + b * b) / 2 + 1e-30))};
}

inline double amplitudeAt(double frequency, double rate, std::span<const float> samples) {
  return toneAt(frequency, rate, samples).amplitude;
}

// The tone of the quarter of a second in which it is purest: there no player stumbled. A seam between blocks
// that the program makes would be in every one.
inline Tone purestStretch(double frequency, double rate, std::span<const float> samples) {
  const auto length = static_cast<std::size_t>(rate / 4);
  Tone purest;
  for (std::size_t at = 0; at + length <= samples.size(); at += length / 4) {
    const Tone tone = toneAt(frequency, rate, samples.subspan(at, length));
    if (tone.residual < purest.residual) purest = tone;
  }
  return purest;
}

} // namespace tolvera::test
