#pragma once

#include <span>

// What is in a recording: for tests that listen.
namespace tolvera::test {

// The amplitude of the sine of `frequency` in the samples; 1 for a full-scale one.
double amplitudeAt(double frequency, double rate, std::span<const float> samples);

// What is left, relative to the sine of `frequency`, when that sine is taken out; decibels. A gap or a
// jump of phase between blocks shows here.
double residualBelow(double frequency, double rate, std::span<const float> samples);

} // namespace tolvera::test
