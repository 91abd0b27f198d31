#pragma once

#include <span>
#include <vector>

// Tones, and what is in a recording: for tests that listen.
namespace tolvera::test {

struct Tone {
  double amplitude = 0; // 1 for a full-scale sine
  double residual =
      0; // what is left without the sine, relative to it, in decibels; a gap or a jump shows here
};

std::vector<float> sine(double frequency, double amplitude, double rate, double seconds);

// The sine of `frequency` in the samples.
Tone toneAt(double frequency, double rate, std::span<const float> samples);
double amplitudeAt(double frequency, double rate, std::span<const float> samples);

// The tone of the quarter of a second in which it is purest: there no player stumbled. A seam between blocks
// that the program makes would be in every one.
Tone purestStretch(double frequency, double rate, std::span<const float> samples);

} // namespace tolvera::test
