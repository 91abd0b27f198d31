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
// DIR holds recordings and their words (Recordings.h). All are played as one stream. "End of speech" is where
// a recording falls below the level of speech for good; the ends of its words come from a forced alignment,
// which knows English alone (WordTimes.h). Numbers count as words ("10" is "ten", Words.h). The processor's
// time and the memory are this process's: the client that plays costs next to nothing.

#include "ProcessUse.h"
#include "Quantile.h"
#include "Recordings.h"
#include "WordTimes.h"
#include "Words.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <future>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using tolvera::bench::align;
using tolvera::bench::leadSamples;
using tolvera::bench::memory;
using tolvera::bench::processorTime;
using tolvera::bench::quantile;
using tolvera::bench::rate;
using tolvera::bench::Recording;
using tolvera::bench::wordEnds;
using tolvera::bench::Words;
using tolvera::bench::wordsOf;
using tolvera::test::HTTPClient;
using tolvera::test::StreamClient;
using Time = StreamClient::Clock::time_point;

constexpr std::size_t chunk = 1600;

void printDelays(const char* name, const std::vector<double>& seconds) {
  if (seconds.empty()) return;
  std::printf("%-44s %5.2f s median, %.2f s 95th (%zu)\n", name, quantile(seconds, 0.5),
              quantile(seconds, 0.95), seconds.size());
}

struct Caption {
  double at = 0; // seconds of the stream
  Words settled;
  Words all;
  bool final = false;
};

double secondsAt(const Recording& recording, std::size_t sample) {
  return static_cast<double>(recording.start + sample) / rate;
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

// The captions of each recording. An utterance belongs to the last recording that can have begun it: its
// first words are never shown sooner than 0.3 s after they began.
std::vector<std::vector<Caption>> captionsOf(const std::vector<Recording>& recordings,
                                             const std::vector<Caption>& captions) {
  constexpr double soonest = 0.3;
  std::vector<std::vector<Caption>> parts(recordings.size());
  std::size_t at = 0;
  bool begins = true;
  for (const Caption& caption : captions) {
    if (begins)
      while (at + 1 < recordings.size() &&
             secondsAt(recordings[at + 1], recordings[at + 1].speechBegins) + soonest <= caption.at)
        ++at;
    parts[at].push_back(caption);
    begins = caption.final;
  }
  return parts;
}

// In seconds. A word is shown when a caption first has it in its place.
struct Delays {
  std::vector<double> firstWords;
  std::vector<double> everyWord;
  std::vector<double> lastChange;
  std::vector<double> lastFinal;
  std::size_t unplaced = 0; // words whose end is not known, or that were never right
};

void add(Delays& delays, const Recording& recording, const std::vector<Caption>& captions) {
  std::vector<double> ends;
  try {
    ends = wordEnds(recording.samples, recording.words);
  } catch (const std::exception&) { // a word that is not in the dictionary
  }
  std::vector<std::optional<double>> shown(recording.words.size());
  std::optional<double> first;
  std::optional<double> change;
  std::optional<double> final;
  Words finals;
  Words before;
  for (const Caption& caption : captions) {
    Words now = finals;
    now.insert(now.end(), caption.all.begin(), caption.all.end());
    if (!first && !now.empty()) first = caption.at;
    if (now != before) change = caption.at;
    const auto right = align(recording.words, now).right;
    for (std::size_t i = 0; i < shown.size(); ++i)
      if (right[i] && !shown[i]) shown[i] = caption.at;
    if (caption.final) final = caption.at, finals = now;
    before = std::move(now);
  }
  const double ended = secondsAt(recording, recording.speechEnds);
  if (first) delays.firstWords.push_back(*first - secondsAt(recording, recording.speechBegins));
  if (change) delays.lastChange.push_back(*change - ended);
  if (final) delays.lastFinal.push_back(*final - ended);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    if (shown[i] && !ends.empty())
      delays.everyWord.push_back(*shown[i] - secondsAt(recording, 0) - ends[i]);
    else
      ++delays.unplaced;
  }
}

void printFigures(const std::vector<Recording>& recordings, const std::vector<Caption>& captions) {
  Words said;
  Delays delays;
  const auto parts = captionsOf(recordings, captions);
  for (std::size_t i = 0; i < recordings.size(); ++i) {
    said.insert(said.end(), recordings[i].words.begin(), recordings[i].words.end());
    add(delays, recordings[i], parts[i]);
  }
  Words heard;
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
  const std::size_t wrong = align(said, heard).edits;
  std::printf("%-44s %5.1f %% (%zu of %zu)\n", "word error", percent(wrong, said.size()), wrong, said.size());
  std::printf("%-44s %5zu\n", "words before anybody spoke", invented);
  printDelays("beginning of speech to its first words", delays.firstWords);
  printDelays("end of a word to its first showing", delays.everyWord);
  std::printf("%-44s %5zu\n", "  words without a known end, or never right", delays.unplaced);
  printDelays("end of speech to text that stays", delays.lastChange);
  printDelays("end of speech to its last final", delays.lastFinal);
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
    if (minutes == 0) recordings = tolvera::bench::recordingsIn(directory);
    const auto stream = minutes > 0 ? tolvera::bench::soundsWithoutSpeech(minutes)
                                    : tolvera::bench::streamOf(recordings, noise, dB);
    tolvera::test::RunningServer server(std::max<std::size_t>(runs, 2), engine);
    if (target.empty()) target = language == "auto" ? "en" : language;
    const double idle = memory(::getpid(), "VmRSS");
    const double before = processorTime(::getpid());
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
                (processorTime(::getpid()) - before) / streamed);
    std::printf("%-44s %5.0f MB idle, %.0f MB with a run\n", "memory", idle, memory(::getpid(), "VmRSS"));
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
