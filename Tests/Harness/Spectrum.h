#pragma once

#include <span>
#include <vector>

// Tones, and what is in a recording: for tests that listen.
namespace tolvera::test {

std::vector<float> sine(double frequency, double amplitude, double rate, double seconds);

// The amplitude of the sine of `frequency` in the samples; 1 for a full-scale one.
double amplitudeAt(double frequency, double rate, std::span<const float> samples);

// What is left, relative to the sine of `frequency`, when that sine is taken out; decibels. A gap or a
// jump of phase between blocks shows here.
double residualBelow(double frequency, double rate, std::span<const float> samples);

// The second in which the sine of `frequency` is purest: in it no player stumbled. A seam of the program's
// own would be in every second.
struct Stretch {
  double residual = 0; // as `residualBelow`
  double amplitude = 0;
};
Stretch purestSecond(double frequency, double rate, std::span<const float> samples);

} // namespace tolvera::test
