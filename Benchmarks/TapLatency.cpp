// What tapping another program costs in time, on a private sound server with null outputs:
// - from a player's hand-over of a sound's first sample to the callback that holds it,
// - the silence when the default output changes, or vanishes,
// - what is missed of a sound at its start when a program begins to play under a standing tap.
//
//   TapLatency [BURSTS]      200 bursts, four a second, if not told otherwise

#include "Quantile.h"

#include "Async/SystemClock.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "TolveraCore/CoreAudioTapBackend.h"

#include "Harness/PrivateGraph.h"

#include <boost/asio/io_context.hpp>
#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <numbers>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace tolvera;
using namespace std::chrono_literals;
using tolvera::bench::quantile;
using Instant = std::chrono::steady_clock::time_point;

namespace {

constexpr std::uint32_t rate = 48000;
constexpr std::uint32_t period = rate / 4;
constexpr std::uint32_t burst = rate / 50;
constexpr std::size_t mostBursts = 4000;
constexpr float audible = 0.05F;
constexpr int starts = 50;

// Shared between the player and the tap: when each burst was handed over.
struct Onsets {
  std::array<std::atomic<std::int64_t>, mostBursts> at;
  std::atomic<std::size_t> count;
};

std::int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

Onsets& shared(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT, 0600);
  if (descriptor < 0 || ::ftruncate(descriptor, sizeof(Onsets)) != 0) std::abort();
  void* memory = ::mmap(nullptr, sizeof(Onsets), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  ::close(descriptor);
  if (memory == MAP_FAILED) std::abort();
  return *static_cast<Onsets*>(memory);
}

struct Player {
  Onsets& onsets;
  pw_stream* stream = nullptr;
  std::uint64_t frame = 0;

  void fill() {
    pw_buffer* taken = pw_stream_dequeue_buffer(stream);
    if (taken == nullptr) return;
    spa_data& data = taken->buffer->datas[0];
    auto* samples = static_cast<float*>(data.data);
    std::uint64_t frames = data.maxsize / sizeof(float);
    if (taken->requested > 0) frames = std::min(frames, taken->requested);
    for (std::uint64_t i = 0; i < frames; ++i, ++frame) {
      const std::uint64_t at = frame % period;
      samples[i] = at < burst ? (at / 24 % 2 == 0 ? 0.5F : -0.5F) : 0;
      const std::size_t number = onsets.count;
      if (at == 0 && number < mostBursts) {
        onsets.at[number] = now();
        onsets.count = number + 1;
      }
    }
    *data.chunk = {.offset = 0,
                   .size = static_cast<std::uint32_t>(frames * sizeof(float)),
                   .stride = sizeof(float),
                   .flags = 0};
    pw_stream_queue_buffer(stream, taken);
  }
};

// The other program. Ends with its parent.
int play(const std::string& file) {
  pw_init(nullptr, nullptr);
  pw_main_loop* loop = pw_main_loop_new(nullptr);
  Player player{shared(file)};
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.process = [](void* data) { static_cast<Player*>(data)->fill(); };
  player.stream = pw_stream_new_simple(
      pw_main_loop_get_loop(loop), "bursts",
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", nullptr), &events,
      &player);
  std::array<std::uint8_t, 1024> storage{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32;
  info.rate = rate;
  info.channels = 1;
  info.position[0] = SPA_AUDIO_CHANNEL_MONO;
  const spa_pod* params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  pw_stream_connect(player.stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                    static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                 PW_STREAM_FLAG_RT_PROCESS),
                    params, 1);
  return pw_main_loop_run(loop);
}

// What the tap heard: the blocks that hold sound, and when each began after silence.
class Ear {
 public:
  AudioCaptureBackend::OnSamples sink() {
    return [this](const SampleBlock& block) { hear(block); };
  }
  void hear(std::span<const float> block) {
    const std::int64_t at = now();
    const std::lock_guard lock(mutex_);
    for (const float sample : block) {
      silence_ = std::abs(sample) < audible ? silence_ + 1 : 0;
      if (silence_ == 0 && quiet_) onsets_.push_back(at);
      quiet_ = silence_ > 800; // 50 ms
      if (silence_ == 0 && first_ == 0) first_ = std::abs(sample);
    }
    if (silence_ < 80) {
      if (last_ != 0) longestGap_ = std::max(longestGap_, at - last_);
      last_ = at;
    }
  }
  std::vector<std::int64_t> onsets() {
    const std::lock_guard lock(mutex_);
    return onsets_;
  }
  // Since `rest`: the longest time between blocks of sound, in ms, and the first audible sample.
  double gap() {
    const std::lock_guard lock(mutex_);
    return static_cast<double>(longestGap_) / 1e6;
  }
  float first() {
    const std::lock_guard lock(mutex_);
    return first_;
  }
  void rest() {
    const std::lock_guard lock(mutex_);
    last_ = longestGap_ = 0;
    first_ = 0;
  }

 private:
  std::mutex mutex_;
  std::vector<std::int64_t> onsets_;
  std::size_t silence_ = 1000;
  bool quiet_ = true;
  std::int64_t last_ = 0;
  std::int64_t longestGap_ = 0;
  float first_ = 0;
};

void print(const char* what, const std::vector<double>& values) {
  if (values.empty()) {
    std::printf("%-44s nothing measured\n", what);
    return;
  }
  std::printf("%-44s median %7.2f  p99 %7.2f  worst %7.2f  of %zu\n", what, quantile(values, 0.5),
              quantile(values, 0.99), quantile(values, 1), values.size());
}

// The tap alone, without the backend around it.
class BareTap {
 public:
  explicit BareTap(platform::AudioHardware& hardware) : hardware_(hardware) {
    platform::TapDescription description;
    description.kind = platform::TapDescription::Kind::monoGlobalTapButExcludeProcesses;
    description.uuid = "bare";
    tap_ = hardware_.createProcessTap(description).value;
    platform::AggregateDescription aggregate;
    aggregate.taps.push_back({"bare", true});
    device_ = hardware_.createAggregateDevice(aggregate).value;
    proc_ = hardware_
                .createIOProc(device_,
                              [this](std::span<const platform::AudioBuffer> inputs) {
                                ear_.hear({inputs[0].data, inputs[0].dataByteSize / sizeof(float)});
                              })
                .value;
    if (hardware_.startDevice(device_, proc_) != 0) std::abort();
  }
  ~BareTap() {
    hardware_.destroyIOProc(device_, proc_);
    hardware_.destroyAggregateDevice(device_);
    hardware_.destroyProcessTap(tap_);
  }
  BareTap(const BareTap&) = delete;
  BareTap& operator=(const BareTap&) = delete;
  Ear& ear() { return ear_; }

 private:
  platform::AudioHardware& hardware_;
  Ear ear_;
  platform::AudioObjectID tap_ = 0;
  platform::AudioObjectID device_ = 0;
  platform::IOProcID proc_ = 0;
};

std::vector<double> delays(const Onsets& played, Ear& ear) {
  std::vector<double> delays;
  const std::size_t count = played.count;
  for (const std::int64_t heard : ear.onsets()) {
    std::int64_t last = 0;
    for (std::size_t i = 0; i < count && played.at[i] <= heard; ++i) last = played.at[i];
    if (last != 0) delays.push_back(static_cast<double>(heard - last) / 1e6);
  }
  return delays;
}

void measureLatency(test::PrivateGraph& graph, Ear& ear, Ear& bare, std::size_t bursts) {
  const std::string file = graph.directory() + "/onsets";
  Onsets& played = shared(file);
  const test::ChildProcess player({"/proc/self/exe", "--play", file});
  test::eventually([&played, bursts] { return played.count >= bursts; },
                   std::chrono::milliseconds(bursts * 250 + 10000));
  std::this_thread::sleep_for(200ms);
  print("sound handed over to the tap's block, ms", delays(played, bare));
  const auto converted = delays(played, ear);
  print("and to the backend's callback, ms", converted);
  std::printf("%-44s %zu of %zu\n", "bursts heard", converted.size(), played.count.load());
}

void measureSwitches(test::PrivateGraph& graph, Ear& ear) {
  std::vector<double> changes;
  std::vector<double> losses;
  const auto player = test::ChildProcess({"pw-play", graph.tone(500, 0.5, 60)});
  std::this_thread::sleep_for(1s);
  for (int i = 0; i < 10; ++i) {
    ear.rest();
    graph.setDefaultSink(i % 2 == 0 ? "second" : "first");
    std::this_thread::sleep_for(700ms);
    changes.push_back(ear.gap());
  }
  for (int i = 0; i < 10; ++i) {
    graph.createSink("third");
    graph.setDefaultSink("third");
    std::this_thread::sleep_for(500ms);
    ear.rest();
    graph.destroyNode("third");
    std::this_thread::sleep_for(700ms);
    losses.push_back(ear.gap());
  }
  print("longest silence, default output changes, ms", changes);
  print("longest silence, default output vanishes, ms", losses);
}

// The sound is a quarter of a slow sine, so that a sample's value tells its place in it.
void measureStarts(test::PrivateGraph& graph, Ear& ear) {
  constexpr double level = 0.9;
  const auto place = [](float value) {
    return std::asin(std::min(value / level, 1.0)) / std::numbers::pi * 1000;
  };
  std::vector<double> missed;
  const std::string file = graph.tone(0.5, level, 0.5);
  for (int i = 0; i <= starts; ++i) { // the first flushes what the converter holds of another sound
    ear.rest();
    auto player = test::ChildProcess({"pw-play", file});
    player.wait(5s);
    std::this_thread::sleep_for(100ms);
    if (i > 0) missed.push_back(ear.first() > 0 ? place(ear.first()) - place(audible) : 500);
  }
  print("missed of a sound at its program's start, ms", missed);
}

} // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--play") == 0) return play(argv[2]);
  const std::size_t bursts = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 200;
  if (bursts < 10 || bursts > mostBursts) {
    std::fprintf(stderr, "between 10 and %zu bursts\n", mostBursts);
    return 2;
  }
  test::PrivateGraph graph;
  graph.createSink("second");
  graph.createSink("first");
  graph.setDefaultSink("first");

  adapters::PipeWireAudioSystem audio;
  boost::asio::io_context context;
  const SystemClock clock(context.get_executor());
  Ear ear;
  CoreAudioTapBackend tap(audio.audioHardware(), audio, clock, CoreAudioTapBackend::EverythingExceptSelf{});
  tap.start(ear.sink());
  {
    BareTap bare(audio.audioHardware());
    measureLatency(graph, ear, bare.ear(), bursts);
  }
  measureSwitches(graph, ear);
  measureStarts(graph, ear);
  tap.stop();
}
