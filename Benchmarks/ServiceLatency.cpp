// Feeds the service in real time with twenty spoken sentences and prints how well it hears and how soon it
// answers: first one stream, then two at once.
//
// Word end to partial translation: the ends come from a forced alignment made beforehand (WordTimes.h). A
// translation covers a word if the last source caption before it has the word in its place, which an
// alignment by least edits with the sentence decides. A word that no caption gets right is left out and
// counted.

#include "Quantile.h"
#include "SpokenSentences.h"
#include "WordTimes.h"
#include "Words.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <thread>

namespace {

using tolvera::bench::align;
using tolvera::bench::Alignment;
using tolvera::bench::quantile;
using tolvera::bench::spokenSentences;
using tolvera::bench::wordEnds;
using tolvera::bench::Words;
using tolvera::bench::wordsOf;
using tolvera::test::HTTPClient;
using tolvera::test::StreamClient;
using Time = StreamClient::Clock::time_point;

constexpr std::size_t chunk = 1600;
constexpr std::size_t pauseChunks = 25;

struct Sentence {
  Words words;
  std::vector<std::int16_t> samples;
  std::vector<double> ends;
};

struct Figures {
  std::size_t words = 0;
  std::size_t edits = 0;
  std::size_t neverRight = 0;
  std::vector<double> toFinal;
  std::vector<double> toPartial;
  double lastAnswer = 0; // seconds between the last sentence's end and its final translation
};

void add(Figures& figures, const Sentence& sentence, Time start,
         const std::vector<StreamClient::Frame>& frames) {
  const auto at = [&](double seconds) {
    return start +
           std::chrono::duration_cast<StreamClient::Clock::duration>(std::chrono::duration<double>(seconds));
  };
  const auto since = [&](Time later, double seconds) {
    return std::chrono::duration<double>(later - at(seconds)).count();
  };
  const auto captions = [&](auto&& use) {
    for (const auto& frame : frames)
      if (frame.received >= start && frame.json.contains("text"))
        use(frame, frame.json.at("final").as_bool());
  };
  std::vector<std::optional<double>> partial(sentence.words.size());
  Words finals; // of the utterances that are over
  Words now;
  std::optional<Time> lastFinal;
  captions([&](const StreamClient::Frame& frame, bool final) {
    if (frame["type"] == "src") {
      now = finals;
      for (std::string& word : wordsOf(frame["text"] + frame["stash"])) now.push_back(std::move(word));
      if (final) finals = now;
      return;
    }
    if (final) lastFinal = frame.received;
    const Alignment alignment = align(sentence.words, now);
    for (std::size_t i = 0; i < partial.size(); ++i)
      if (alignment.right[i] && !partial[i]) partial[i] = since(frame.received, sentence.ends[i]);
  });
  figures.words += sentence.words.size();
  figures.edits += align(sentence.words, finals).edits;
  for (const auto& latency : partial) {
    if (latency)
      figures.toPartial.push_back(*latency);
    else
      ++figures.neverRight;
  }
  if (lastFinal) {
    figures.lastAnswer = since(*lastFinal, sentence.ends.back());
    figures.toFinal.push_back(figures.lastAnswer);
  }
}

// Speaks all sentences into one stream, each chunk when its last sample would have been recorded.
Figures measure(std::uint16_t port, const std::vector<Sentence>& sentences) {
  StreamClient client(port, "token=" + HTTPClient(port).signUp() + "&target=es&source=en&dub=0&src=1");
  client.waitForType("ready");
  const std::vector<std::int16_t> silence(chunk);
  auto due = StreamClient::Clock::now();
  std::vector<Time> starts;
  const auto send = [&](std::span<const std::int16_t> samples) {
    due += std::chrono::milliseconds(100);
    client.readUntil(due);
    client.sendAudio(samples);
  };
  for (std::size_t i = 0; i < 20; ++i) send(silence);
  for (const Sentence& sentence : sentences) {
    starts.push_back(due);
    for (std::size_t at = 0; at < sentence.samples.size(); at += chunk) {
      std::vector<std::int16_t> block(chunk);
      const std::size_t count = std::min(chunk, sentence.samples.size() - at);
      std::copy_n(sentence.samples.begin() + static_cast<std::ptrdiff_t>(at), count, block.begin());
      send(block);
    }
    for (std::size_t i = 0; i < pauseChunks; ++i) send(silence);
  }
  client.readUntil(StreamClient::Clock::now() + std::chrono::seconds(2));
  const auto& frames = client.frames();
  Figures figures;
  for (std::size_t i = 0; i < sentences.size(); ++i) {
    const Time end = i + 1 < sentences.size() ? starts[i + 1] : Time::max();
    std::vector<StreamClient::Frame> own;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(own),
                 [&](const auto& frame) { return frame.received >= starts[i] && frame.received < end; });
    add(figures, sentences[i], starts[i], own);
  }
  return figures;
}

void print(const char* name, const Figures& figures) {
  std::printf("%s\n", name);
  std::printf("  word error                          %5.1f %%  (%zu of %zu)\n",
              100.0 * static_cast<double>(figures.edits) / static_cast<double>(figures.words), figures.edits,
              figures.words);
  std::printf(
      "  end of speech to final translation  %5.2f s median, %.2f s p90 (%zu sentences; the last %.2f s)\n",
      quantile(figures.toFinal, 0.5), quantile(figures.toFinal, 0.9), figures.toFinal.size(),
      figures.lastAnswer);
  std::printf(
      "  end of word to partial translation  %5.2f s median, %.2f s p90 (%zu words; %zu never right)\n",
      quantile(figures.toPartial, 0.5), quantile(figures.toPartial, 0.9), figures.toPartial.size(),
      figures.neverRight);
}

} // namespace

int main() {
  std::vector<Sentence> sentences;
  for (const std::string_view text : spokenSentences) {
    Sentence sentence{wordsOf(text), tolvera::test::spoken(std::string(text)), {}};
    sentence.ends = wordEnds(sentence.samples, sentence.words);
    sentences.push_back(std::move(sentence));
  }
  tolvera::test::RunningServer server(2);
  print("one stream", measure(server->port(), sentences));

  Figures other;
  std::vector<Sentence> reversed(sentences.rbegin(), sentences.rend());
  std::thread second([&] { other = measure(server->port(), reversed); });
  const Figures first = measure(server->port(), sentences);
  second.join();
  print("two streams at once: the first", first);
  print("two streams at once: the second", other);
}
