#include "Platform/Linux/PipeWireOutputStream.h"

#include "Platform/PlatformError.h"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace tolvera::adapters {

namespace {

using platform::AudioFormat;
using platform::PlatformError;

constexpr std::chrono::seconds snapshotPatience{1};
constexpr std::chrono::milliseconds changePatience{500};
constexpr std::chrono::milliseconds retryInterval{500};
constexpr double quietSeconds = 2;

spa_audio_info_raw streamFormat(const AudioFormat& format) {
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = static_cast<std::uint32_t>(format.sampleRate);
  info.channels = std::min<std::uint32_t>(format.channelCount, SPA_AUDIO_MAX_CHANNELS);
  for (std::uint32_t c = 0; c < info.channels; ++c) info.position[c] = SPA_AUDIO_CHANNEL_START_Aux + c;
  if (info.channels == 1) info.position[0] = SPA_AUDIO_CHANNEL_MONO;
  if (info.channels == 2) {
    info.position[0] = SPA_AUDIO_CHANNEL_FL;
    info.position[1] = SPA_AUDIO_CHANNEL_FR;
  }
  return info;
}

} // namespace

struct PipeWireOutputStream::Events {
  static void state(void* data, pw_stream_state /*old*/, pw_stream_state state, const char* /*error*/) {
    static_cast<PipeWireOutputStream*>(data)->onState(state);
  }
  static void process(void* data) { static_cast<PipeWireOutputStream*>(data)->onProcess(); }
  static void quiet(void* data, std::uint64_t /*count*/) {
    static_cast<PipeWireOutputStream*>(data)->onQuiet();
  }
  static const pw_stream_events& all() {
    static const pw_stream_events events = [] {
      pw_stream_events made{};
      made.version = PW_VERSION_STREAM_EVENTS;
      made.state_changed = state;
      made.process = process;
      return made;
    }();
    return events;
  }
};

PipeWireOutputStream::PipeWireOutputStream(std::shared_ptr<PipeWireGraph> graph, const AudioFormat& format,
                                           std::shared_ptr<PipeWireVoice> voice)
    : graph_(std::move(graph)), format_(format), voice_(std::move(voice)) {
  PipeWireConnection& connection = graph_->connection;
  if (!connection.open(snapshotPatience)) {
    throw PlatformError("PipeWire", ECONNREFUSED, "The sound server does not answer.");
  }
  const LoopLock lock(connection.loop());
  pw_loop* loop = pw_thread_loop_get_loop(connection.loop());
  quiet_ = pw_loop_add_event(loop, Events::quiet, this);
  if (quiet_ == nullptr || !open()) {
    if (quiet_ != nullptr) pw_loop_destroy_source(loop, quiet_);
    throw PlatformError("PipeWire", EIO, "The sound server takes no stream.");
  }
  connection.addListener(*this);
}

PipeWireOutputStream::~PipeWireOutputStream() {
  PipeWireConnection& connection = graph_->connection;
  const LoopLock lock(connection.loop());
  connection.removeListener(*this);
  awaitChange();
  close();
  pw_loop_destroy_source(pw_thread_loop_get_loop(connection.loop()), quiet_);
}

// The library loses a descriptor with a stream that is dropped while the server links it.
void PipeWireOutputStream::awaitChange() {
  pw_thread_loop* loop = graph_->connection.loop();
  timespec deadline{};
  pw_thread_loop_get_time(loop, &deadline, std::chrono::nanoseconds(changePatience).count());
  while (stream_ && active_ != flowing_ && !failed_) {
    if (pw_thread_loop_timed_wait_full(loop, &deadline) != 0) break;
  }
}

void PipeWireOutputStream::settled() {
  if (graph_->connection.core() == nullptr || (stream_ && !failed_)) return;
  close();
  if (!open()) graph_->connection.retryIn(retryInterval);
}

void PipeWireOutputStream::disconnected() { close(); }

bool PipeWireOutputStream::open() {
  stream_.reset(pw_stream_new(graph_->connection.core(), "Tolvera Dub",
                              pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback",
                                                PW_KEY_MEDIA_NAME, "Tolvera Dub", PW_KEY_NODE_NAME,
                                                "tolvera-dub", PW_KEY_APP_NAME, "Tolvera", nullptr)));
  if (!stream_) return false;
  open_ = true;
  pw_stream_add_listener(stream_.get(), hook_.get(), &Events::all(), this);
  std::array<std::uint8_t, 1024> storage{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  spa_audio_info_raw info = streamFormat(format_);
  const spa_pod* params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                  PW_STREAM_FLAG_RT_PROCESS);
  active_ = true;
  const bool connected =
      pw_stream_connect(stream_.get(), PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, params, 1) >= 0;
  if (!connected) close();
  return connected;
}

void PipeWireOutputStream::close() {
  open_ = false;
  // Disconnecting ends the real-time callback; only then may what it uses go.
  if (stream_) pw_stream_disconnect(stream_.get());
  hook_.remove();
  stream_.reset();
  active_ = flowing_ = failed_ = false;
}

void PipeWireOutputStream::wake() {
  const LoopLock lock(graph_->connection.loop());
  if (!stream_ || active_) return;
  active_ = true;
  pw_stream_set_active(stream_.get(), true);
}

void PipeWireOutputStream::onQuiet() {
  if (!stream_ || !active_ || voice_->queue.hasSound()) return;
  active_ = false;
  pw_stream_set_active(stream_.get(), false);
}

// A stream without an output says that it has failed, and goes on when there is one. If it does not, another
// is tried.
void PipeWireOutputStream::onState(pw_stream_state state) {
  if (!open_) return;
  failed_ = state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED;
  if (failed_) graph_->connection.retryIn(retryInterval);
  flowing_ = state == PW_STREAM_STATE_STREAMING;
  pw_thread_loop_signal(graph_->connection.loop(), false);
}

void PipeWireOutputStream::onProcess() noexcept {
  pw_buffer* taken = pw_stream_dequeue_buffer(stream_.get());
  if (taken == nullptr) return;
  spa_buffer& buffer = *taken->buffer;
  std::array<float*, SPA_AUDIO_MAX_CHANNELS> planes{};
  const std::uint32_t channels = std::min<std::uint32_t>(buffer.n_datas, SPA_AUDIO_MAX_CHANNELS);
  std::size_t frames = taken->requested > 0 ? taken->requested : SIZE_MAX;
  bool mapped = channels > 0;
  for (std::uint32_t c = 0; c < channels; ++c) {
    planes[c] = static_cast<float*>(buffer.datas[c].data);
    mapped &= planes[c] != nullptr;
    frames = std::min<std::size_t>(frames, buffer.datas[c].maxsize / sizeof(float));
  }
  if (!mapped) frames = 0;
  const bool playing = voice_->playing.load(std::memory_order_acquire);
  const std::size_t sound = playing ? voice_->queue.read(planes.data(), channels, frames) : 0;
  const float volume = voice_->volume.load(std::memory_order_relaxed);
  for (std::uint32_t c = 0; c < channels; ++c) {
    if (mapped) {
      for (std::size_t i = 0; i < sound; ++i) planes[c][i] *= volume;
      std::fill(planes[c] + sound, planes[c] + frames, 0.0F);
    }
    spa_chunk& chunk = *buffer.datas[c].chunk;
    chunk.offset = 0;
    chunk.stride = sizeof(float);
    chunk.size = static_cast<std::uint32_t>(frames * sizeof(float));
  }
  pw_stream_queue_buffer(stream_.get(), taken);

  const auto limit = static_cast<std::size_t>(format_.sampleRate * quietSeconds);
  silentFrames_ = sound > 0 ? 0 : silentFrames_ + frames;
  if (silentFrames_ < limit) return;
  silentFrames_ = 0;
  pw_loop_signal_event(pw_thread_loop_get_loop(graph_->connection.loop()), quiet_);
}

} // namespace tolvera::adapters
