#include "Recordings.h"

#include <sndfile.h>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <span>
#include <stdexcept>

namespace tolvera::bench {

namespace {

constexpr std::size_t chunk = 1600;
constexpr std::size_t pauseSamples = 19200; // 1.2 s

std::vector<std::int16_t> samplesOf(const std::filesystem::path& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) throw std::runtime_error(path.string() + " cannot be read");
  std::vector<float> frames(static_cast<std::size_t>(info.frames * info.channels));
  sf_readf_float(file, frames.data(), info.frames);
  sf_close(file);
  const auto channels = static_cast<std::size_t>(info.channels);
  std::vector<float> mono(static_cast<std::size_t>(info.frames));
  for (std::size_t i = 0; i < mono.size(); ++i) mono[i] = frames[i * channels];
  std::vector<float> converted(
      static_cast<std::size_t>(static_cast<double>(mono.size()) * rate / info.samplerate) + 1);
  std::size_t made = 0;
  soxr_oneshot(info.samplerate, rate, 1, mono.data(), mono.size(), nullptr, converted.data(),
               converted.size(), &made, nullptr, nullptr, nullptr);
  std::vector<std::int16_t> samples;
  for (std::size_t i = 0; i < made; ++i)
    samples.push_back(static_cast<std::int16_t>(std::clamp(converted[i], -1.0F, 1.0F) * 32767));
  return samples;
}

// Where speech begins and ends: 20 ms blocks whose level is within 35 dB of the loudest.
void findSpeech(Recording& recording) {
  constexpr std::size_t block = 320;
  std::vector<double> levels;
  for (std::size_t at = 0; at + block <= recording.samples.size(); at += block) {
    double sum = 0;
    for (std::size_t i = at; i < at + block; ++i) sum += std::pow(recording.samples[i], 2.0);
    levels.push_back(sum);
  }
  const double least = *std::max_element(levels.begin(), levels.end()) / 3162;
  const auto loud = [least](double level) { return level > least; };
  const auto first = std::find_if(levels.begin(), levels.end(), loud);
  const auto last = std::find_if(levels.rbegin(), levels.rend(), loud);
  recording.speechBegins = static_cast<std::size_t>(first - levels.begin()) * block;
  recording.speechEnds = static_cast<std::size_t>(levels.rend() - last) * block;
}

// Mean power of the samples.
double powerOf(std::span<const std::int16_t> samples) {
  double sum = 0;
  for (const std::int16_t sample : samples) sum += std::pow(sample, 2.0);
  return sum / static_cast<double>(std::max<std::size_t>(samples.size(), 1));
}

void add(std::vector<std::int16_t>& stream, const std::vector<double>& sound, double factor) {
  for (std::size_t i = 0; i < stream.size(); ++i)
    stream[i] = static_cast<std::int16_t>(
        std::clamp(static_cast<double>(stream[i]) + sound[i] * factor, -32768.0, 32767.0));
}

std::vector<double> whiteNoise(std::size_t size) { // power 1
  std::vector<double> sound(size);
  std::generate(sound.begin(), sound.end(),
                [random = std::mt19937(1), level = std::normal_distribution<double>(0, 1)]() mutable {
                  return level(random);
                });
  return sound;
}

// Eight voices at once, from the recordings without their pauses.
std::vector<double> babble(const std::vector<Recording>& recordings, std::size_t size) {
  std::vector<double> voices;
  for (const Recording& recording : recordings)
    voices.insert(voices.end(), recording.samples.begin(), recording.samples.end());
  std::vector<double> sound(size);
  std::mt19937 random(2);
  for (int voice = 0; voice < 8; ++voice)
    for (std::size_t i = 0, from = random() % voices.size(); i < size; ++i)
      sound[i] += voices[(from + i) % voices.size()];
  return sound;
}

} // namespace

std::vector<Recording> recordingsIn(const std::filesystem::path& directory) {
  std::vector<Recording> recordings;
  std::ifstream list(directory / "text");
  for (std::string line; std::getline(list, line);) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos) continue;
    Recording recording{line.substr(0, tab), wordsOf(line.substr(tab + 1)), {}, 0, 0, 0};
    for (const char* ending : {".flac", ".wav", ""})
      if (const auto path = directory / (recording.name + ending); is_regular_file(path)) {
        recording.samples = samplesOf(path);
        break;
      }
    if (recording.samples.empty()) throw std::runtime_error("no recording is called " + recording.name);
    findSpeech(recording);
    recordings.push_back(std::move(recording));
  }
  if (recordings.empty()) throw std::runtime_error("no recordings in " + directory.string());
  return recordings;
}

std::vector<std::int16_t> soundsWithoutSpeech(double minutes) {
  const auto size = static_cast<std::size_t>(minutes * 60 * rate);
  const std::vector<double> noise = whiteNoise(size);
  std::vector<std::int16_t> stream;
  std::mt19937 random(3);
  constexpr double halfTone = 1.0594631;
  double root = 220;
  for (std::size_t i = 0; i < size; ++i) {
    const double seconds = static_cast<double>(i) / rate;
    const int part = static_cast<int>(seconds / 20) % 3;
    const double beat = std::fmod(seconds, 0.75);
    if (beat < 0.5 / rate) root = 110 * std::pow(halfTone, static_cast<double>(random() % 24));
    double sample = 3 * noise[i];
    if (part == 1) sample = 1500 * noise[i];
    if (part == 0)
      for (const int step : {0, 4, 7, 12})
        for (int harmonic = 1; harmonic <= 4; ++harmonic)
          sample += 1800 / harmonic * std::exp(-beat * 2) *
                    std::sin(6.2831853 * seconds * harmonic * root * std::pow(halfTone, step));
    stream.push_back(static_cast<std::int16_t>(std::clamp(sample, -32768.0, 32767.0)));
  }
  return stream;
}

std::vector<std::int16_t> streamOf(std::vector<Recording>& recordings, const std::string& noise, double dB) {
  std::vector<std::int16_t> stream(leadSamples);
  double power = 0;
  for (Recording& recording : recordings) {
    recording.start = stream.size();
    stream.insert(stream.end(), recording.samples.begin(), recording.samples.end());
    stream.resize(stream.size() + pauseSamples);
    power += powerOf(std::span(recording.samples)
                         .subspan(recording.speechBegins, recording.speechEnds - recording.speechBegins));
  }
  stream.resize((stream.size() / chunk + 1) * chunk);
  add(stream, whiteNoise(stream.size()), 8);
  if (noise.empty()) return stream;
  const std::vector<double> sound =
      noise == "white" ? whiteNoise(stream.size()) : babble(recordings, stream.size());
  double own = 0;
  for (const double sample : sound) own += sample * sample / static_cast<double>(sound.size());
  add(stream, sound, std::sqrt(power / static_cast<double>(recordings.size()) / own / std::pow(10, dB / 10)));
  return stream;
}

} // namespace tolvera::bench
