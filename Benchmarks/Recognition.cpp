// Streams recordings of people into the service in real time and prints how well it hears them and how soon.
//
// usage: Recognition DIR [--engine NAME | --recogniser ADDRESS --recogniser-model NAME] [--language CODE]
//                    [--target CODE] [--white DB | --babble DB] [--runs N]
//        Recognition --sounds MINUTES [...]
//
// With --white and --babble the stream has noise that is so much weaker than the speech: white, or of the
// same voices talking at once. With --runs it is played to N runs at once; figures are of the first. With
// --sounds there is no speech: chords, white noise and silence in turn, and every word is an invention.
//
// DIR holds recordings (WAV, FLAC) and a file `text`: a line for each, its name without the ending, a tab,
// its words. All are played as one stream, with pauses of faint noise in between. "End of speech" is where a
// recording falls below the level of speech for good. The processor's time and the memory are this process's:
// the client that plays costs next to nothing.

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <sndfile.h>
#include <soxr.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <future>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using tolvera::test::HTTPClient;
using tolvera::test::StreamClient;
using Time = StreamClient::Clock::time_point;
using Words = std::vector<std::string>;

constexpr double rate = 16000;
constexpr std::size_t chunk = 1600;
constexpr std::size_t pauseSamples = 19200; // 1.2 s
constexpr std::size_t leadSamples = 80000;  // 5 s without speech

struct Recording {
  std::string name;
  Words words;
  std::vector<std::int16_t> samples;
  std::size_t start = 0; // samples of the stream
  std::size_t speechBegins = 0;
  std::size_t speechEnds = 0;
};

Words wordsOf(std::string_view text) {
  Words words;
  std::string word;
  for (const char c : std::string(text) + " ") {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || byte >= 0x80 || c == '\'') {
      word += static_cast<char>(std::tolower(byte));
    } else if (c != '-' || word.empty()) {
      if (!word.empty()) words.push_back(std::move(word));
      word.clear();
    }
  }
  return words;
}

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

std::size_t edits(const Words& said, const Words& heard) {
  std::vector<std::size_t> row(heard.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= said.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j < row.size(); ++j) {
      const std::size_t change = diagonal + (said[i - 1] == heard[j - 1] ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({change, row[j] + 1, row[j - 1] + 1}));
    }
  }
  return row.back();
}

void printQuantiles(const char* name, std::vector<double> values) {
  if (values.empty()) return;
  std::sort(values.begin(), values.end());
  const auto at = [&](double q) {
    return values[static_cast<std::size_t>(std::lround(q * static_cast<double>(values.size() - 1)))];
  };
  std::printf("%-44s %5.2f s median, %.2f s 95th (%zu)\n", name, at(0.5), at(0.95), values.size());
}

double memory() { // MB
  std::ifstream file("/proc/self/statm");
  double pages = 0;
  file >> pages >> pages;
  return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6;
}

double processorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](timeval time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Caption {
  double at = 0; // seconds of the stream
  Words settled;
  Words all;
  bool final = false;
};

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

// Twenty seconds each of chords, of white noise and of silence, again and again.
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

// The recordings as one stream, with pauses of faint noise.
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

// Plays the stream and gives what came back as captions of the spoken language.
std::vector<Caption> play(std::uint16_t port, const std::vector<std::int16_t>& stream,
                          const std::string& query) {
  StreamClient client(port, "token=" + HTTPClient(port).signUp() + query);
  if (!client.waitForType("ready")) throw std::runtime_error("the service does not answer");
  const Time start = StreamClient::Clock::now();
  for (std::size_t at = 0; at < stream.size(); at += chunk) {
    std::this_thread::sleep_until(start + std::chrono::milliseconds(at * 1000 / 16000 + 100));
    client.sendAudio(std::span(stream).subspan(at, chunk));
  }
  client.stop();
  client.readUntil(StreamClient::Clock::now() + std::chrono::seconds(5)); // as long as the program listens
  std::vector<Caption> captions;
  for (const auto& frame : client.frames()) {
    if (frame["type"] == "error") throw std::runtime_error(frame["message"]);
    if (frame["type"] != "src") continue;
    const std::string settled = frame["text"];
    captions.push_back({std::chrono::duration<double>(frame.received - start).count(), wordsOf(settled),
                        wordsOf(settled + frame["stash"]), frame.json.at("final").as_bool()});
  }
  return captions;
}

// Words of the first that are not in the same place of the second.
std::size_t different(const Words& first, const Words& second) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < first.size(); ++i)
    if (i >= second.size() || first[i] != second[i]) ++count;
  return count;
}

void printFigures(const std::vector<Recording>& recordings, const std::vector<Caption>& captions) {
  Words said;
  Words heard;
  std::vector<double> first;
  std::vector<double> toFinal;
  for (const Recording& recording : recordings) {
    said.insert(said.end(), recording.words.begin(), recording.words.end());
    const double from = static_cast<double>(recording.start + recording.speechBegins) / rate;
    const double until = static_cast<double>(recording.start + recording.speechEnds) / rate;
    const double next = static_cast<double>(recording.start + recording.samples.size() + pauseSamples) / rate;
    std::optional<double> begun;
    std::optional<double> ended;
    for (const Caption& caption : captions) {
      if (caption.at < from || caption.at > next + 0.5) continue;
      if (!begun && !caption.all.empty()) begun = caption.at;
      if (caption.final && caption.at > until - 0.5) ended = ended.value_or(caption.at);
    }
    if (begun) first.push_back(*begun - from);
    if (ended) toFinal.push_back(*ended - until);
  }
  std::size_t shown = 0;
  std::size_t changed = 0;
  std::size_t settled = 0;
  std::size_t contradicted = 0;
  std::size_t invented = 0;
  Caption before;
  for (const Caption& caption : captions) {
    if (caption.at < leadSamples / rate) invented += caption.all.size();
    shown += before.all.size();
    changed += different(before.all, caption.all);
    if (caption.final) {
      heard.insert(heard.end(), caption.all.begin(), caption.all.end());
      settled += before.settled.size();
      contradicted += different(before.settled, caption.all);
    }
    before = caption.final ? Caption{} : caption;
  }
  const auto percent = [](std::size_t part, std::size_t whole) {
    return 100.0 * static_cast<double>(part) / static_cast<double>(std::max<std::size_t>(whole, 1));
  };
  const std::size_t wrong = edits(said, heard);
  std::printf("%-44s %5.1f %% (%zu of %zu)\n", "word error", percent(wrong, said.size()), wrong, said.size());
  std::printf("%-44s %5zu\n", "words before anybody spoke", invented);
  printQuantiles("beginning of speech to its first words", first);
  printQuantiles("end of speech to its last final", toFinal);
  std::printf("%-44s %5.1f %%\n", "words changed by the next caption", percent(changed, shown));
  std::printf("%-44s %5.1f %% (%zu of %zu)\n", "settled words contradicted by the final",
              percent(contradicted, settled), contradicted, settled);
}

} // namespace

int main(int count, char** values) {
  try {
    std::string directory;
    tolvera::service::EngineChoice engine;
    const auto recogniser = [&]() -> tolvera::service::ServerChoice& {
      return engine.server ? *engine.server : engine.server.emplace();
    };
    std::string language = "en";
    std::string target;
    std::string noise;
    double dB = 0;
    double minutes = 0;
    std::size_t runs = 1;
    for (int i = 1; i < count; ++i) {
      const std::string argument = values[i];
      if (i + 1 < count && argument == "--engine")
        engine.name = values[++i];
      else if (i + 1 < count && argument == "--recogniser")
        recogniser().address = values[++i];
      else if (i + 1 < count && argument == "--recogniser-model")
        recogniser().model = values[++i];
      else if (i + 1 < count && argument == "--language")
        language = values[++i];
      else if (i + 1 < count && argument == "--target")
        target = values[++i];
      else if (i + 1 < count && (argument == "--white" || argument == "--babble"))
        noise = argument.substr(2), dB = std::stod(values[++i]);
      else if (i + 1 < count && argument == "--sounds")
        minutes = std::stod(values[++i]);
      else if (i + 1 < count && argument == "--runs")
        runs = std::stoul(values[++i]);
      else
        directory = argument;
    }
    if (directory.empty() == (minutes == 0)) {
      std::fputs("usage: Recognition DIR [--engine NAME | --recogniser ADDRESS --recogniser-model NAME] "
                 "[--language CODE] [--target CODE] [--white DB | --babble DB] [--runs N]\n"
                 "       Recognition --sounds MINUTES [...]\n",
                 stderr);
      return 2;
    }
    std::vector<Recording> recordings;
    if (minutes == 0) recordings = recordingsIn(directory);
    const auto stream = minutes > 0 ? soundsWithoutSpeech(minutes) : streamOf(recordings, noise, dB);
    tolvera::test::RunningServer server(std::max<std::size_t>(runs, 2), engine);
    if (target.empty()) target = language == "auto" ? "en" : language;
    const double idle = memory();
    const double before = processorSeconds();
    const auto run = [&] {
      return play(server->port(), stream, "&target=" + target + "&source=" + language + "&dub=0&src=1");
    };
    std::vector<std::future<std::vector<Caption>>> others;
    for (std::size_t i = 1; i < runs; ++i) others.push_back(std::async(std::launch::async, run));
    const auto captions = run();
    for (auto& other : others) other.get();
    const double streamed = static_cast<double>(stream.size()) / rate;
    if (minutes > 0) {
      std::size_t words = 0;
      for (const Caption& caption : captions) words += caption.all.size();
      std::printf("%-44s %5zu in %.1f minutes\n", "words shown, though nothing was said", words, minutes);
    } else {
      printFigures(recordings, captions);
    }
    std::printf("%-44s %5.2f\n", "processor seconds a second of stream",
                (processorSeconds() - before) / streamed);
    std::printf("%-44s %5.0f MB idle, %.0f MB with a run\n", "memory", idle, memory());
    for (const Caption& caption : captions)
      if (caption.final) {
        std::printf("%7.2f ", caption.at);
        for (const std::string& word : caption.all) std::printf(" %s", word.c_str());
        std::printf("\n");
      }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "Recognition: %s\n", error.what());
    return 1;
  }
}
