#include "Harness/Spectrum.h"

#include <cmath>
#include <numbers>

namespace tolvera::test {

namespace {

// The least-squares fit of a·cos + b·sin.
struct Fit {
  double cosine = 0;
  double sine = 0;
};

Fit fit(double frequency, double rate, std::span<const float> samples) {
  const double step = 2 * std::numbers::pi * frequency / rate;
  double cc = 0;
  double ss = 0;
  double cs = 0;
  double xc = 0;
  double xs = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double c = std::cos(step * static_cast<double>(i));
    const double s = std::sin(step * static_cast<double>(i));
    const double x = samples[i];
    cc += c * c;
    ss += s * s;
    cs += c * s;
    xc += x * c;
    xs += x * s;
  }
  const double determinant = cc * ss - cs * cs;
  if (determinant == 0) return {};
  return {(xc * ss - xs * cs) / determinant, (xs * cc - xc * cs) / determinant};
}

} // namespace

std::vector<float> sine(double frequency, double amplitude, double rate, double seconds) {
  std::vector<float> samples(static_cast<std::size_t>(rate * seconds));
  const double step = 2 * std::numbers::pi * frequency / rate;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(amplitude * std::sin(step * static_cast<double>(i)));
  }
  return samples;
}

double amplitudeAt(double frequency, double rate, std::span<const float> samples) {
  const Fit found = fit(frequency, rate, samples);
  return std::hypot(found.cosine, found.sine);
}

double residualBelow(double frequency, double rate, std::span<const float> samples) {
  const Fit found = fit(frequency, rate, samples);
  const double step = 2 * std::numbers::pi * frequency / rate;
  double residual = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double phase = step * static_cast<double>(i);
    const double left = samples[i] - found.cosine * std::cos(phase) - found.sine * std::sin(phase);
    residual += left * left;
  }
  const double amplitude = std::hypot(found.cosine, found.sine);
  const double mean = residual / static_cast<double>(samples.size());
  return 10 * std::log10((mean + 1e-30) / (amplitude * amplitude / 2 + 1e-30));
}

Stretch purestSecond(double frequency, double rate, std::span<const float> samples) {
  const auto second = static_cast<std::size_t>(rate);
  Stretch purest;
  for (std::size_t at = 0; at + second <= samples.size(); at += second / 4) {
    const auto stretch = samples.subspan(at, second);
    const double residual = residualBelow(frequency, rate, stretch);
    if (residual < purest.residual) purest = {residual, amplitudeAt(frequency, rate, stretch)};
  }
  return purest;
}

} // namespace tolvera::test
