// Speaks sentences into the service in real time and prints how soon the first sound of a translation follows
// its final caption, how long the program holds its microphone back, and how long speech takes to make.

#include "Quantile.h"
#include "SpokenSentences.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

using tolvera::bench::quantile;
using tolvera::bench::spokenSentences;
using tolvera::test::HTTPClient;
using tolvera::test::StreamClient;
using Time = StreamClient::Clock::time_point;

constexpr std::size_t chunk = 1600;
constexpr std::size_t pauseChunks = 15;

double secondsBetween(Time earlier, Time later) {
  return std::chrono::duration<double>(later - earlier).count();
}

void speak(StreamClient& client) {
  auto due = StreamClient::Clock::now();
  const auto send = [&](std::span<const std::int16_t> samples) {
    due += std::chrono::milliseconds(100);
    client.readUntil(due);
    client.sendAudio(samples);
  };
  const std::vector<std::int16_t> silence(chunk);
  for (std::size_t i = 0; i < 10; ++i) send(silence);
  for (const std::string_view text : spokenSentences) {
    const auto samples = tolvera::test::spoken(std::string(text));
    for (std::size_t at = 0; at < samples.size(); at += chunk)
      send(std::span(samples).subspan(at, std::min(chunk, samples.size() - at)));
    for (std::size_t i = 0; i < pauseChunks; ++i) send(silence);
  }
  client.readUntil(StreamClient::Clock::now() + std::chrono::seconds(4));
}

// A caption that comes while an earlier sentence is still being sent has no first sound of its own to be
// seen: it is counted apart.
void printFirstSounds(const std::vector<StreamClient::Frame>& frames) {
  std::vector<double> waits;
  std::size_t captions = 0;
  std::size_t busy = 0;
  std::optional<Time> caption;
  std::optional<Time> lastSound;
  for (const auto& frame : frames) {
    if (!frame.binary.empty()) {
      if (caption) waits.push_back(secondsBetween(*caption, frame.received));
      caption.reset();
      lastSound = frame.received;
    } else if (frame["type"] == "tr" && frame.json.at("final").as_bool()) {
      ++captions;
      if (lastSound && secondsBetween(*lastSound, frame.received) < 0.12)
        ++busy;
      else
        caption = frame.received;
    }
  }
  std::printf(
      "final caption to first sound  %.1f ms median, %.1f ms p90, %.1f ms worst (%zu of %zu sentences; "
      "%zu came while another was being sent)\n",
      1000 * quantile(waits, 0.5), 1000 * quantile(waits, 0.9), 1000 * quantile(waits, 1), waits.size(),
      captions, busy);
}

// The program holds its microphone back for as long as it believes that the dub sounds: the length of each
// frame and 0.4 s.
void printDeafness(const std::vector<StreamClient::Frame>& frames) {
  constexpr double margin = 0.4;
  double seconds = 0;
  std::size_t sounds = 0;
  for (const auto& frame : frames) {
    if (frame.binary.empty()) continue;
    ++sounds;
    seconds += static_cast<double>(frame.binary.size()) / 2 / tolvera::service::Speech::sampleRate;
  }
  std::printf("microphone held back          %.1f s for %.1f s of dub in %zu frames\n",
              seconds + margin * static_cast<double>(sounds), seconds, sounds);
}

void printSynthesis(const std::vector<StreamClient::Frame>& frames) {
  const tolvera::service::Speech speech;
  std::vector<double> costs;
  for (const auto& frame : frames) {
    if (frame["type"] != "tr" || !frame.json.at("final").as_bool()) continue;
    const auto start = StreamClient::Clock::now();
    const auto sound = speech.say("es", "Tina", frame["text"]);
    costs.push_back(secondsBetween(start, StreamClient::Clock::now()));
  }
  std::printf("making a sentence's speech    %.1f ms median, %.1f ms p90\n", 1000 * quantile(costs, 0.5),
              1000 * quantile(costs, 0.9));
}

} // namespace

int main() {
  tolvera::test::RunningServer server(2);
  StreamClient client(server->port(), "token=" + HTTPClient(server->port()).signUp() +
                                          "&target=es&source=en&dub=1&src=1&voice=Tina");
  client.waitForType("ready");
  speak(client);
  const auto frames = client.frames();
  printFirstSounds(frames);
  printDeafness(frames);
  printSynthesis(frames);
}
