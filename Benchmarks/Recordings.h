#pragma once

#include "Words.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tolvera::bench {

inline constexpr double rate = 16000;             // samples a second of all streams
inline constexpr std::size_t leadSamples = 80000; // 5 s without speech begin a stream

// A recording of somebody who speaks, and its place in a stream.
struct Recording {
  std::string name;
  Words words;
  std::vector<std::int16_t> samples;
  std::size_t start = 0;        // samples of the stream
  std::size_t speechBegins = 0; // samples of the recording
  std::size_t speechEnds = 0;
};

// The recordings (WAV, FLAC) that the file `text` of a directory lists: a line for each, its name without the
// ending, a tab, its words. Throws if one cannot be read.
std::vector<Recording> recordingsIn(const std::filesystem::path& directory);

// The recordings as one stream, with pauses of 1.2 s of faint noise. `noise` is nothing, "white", or "babble"
// of the same voices, and `dB` weaker than the speech. Sets the places of the recordings.
std::vector<std::int16_t> streamOf(std::vector<Recording>& recordings, const std::string& noise, double dB);

// Twenty seconds each of chords, of white noise and of silence, again and again.
std::vector<std::int16_t> soundsWithoutSpeech(double minutes);

} // namespace tolvera::bench
