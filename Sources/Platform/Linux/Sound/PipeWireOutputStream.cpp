#include "Platform/Linux/Sound/PipeWireOutputStream.h"

#include "Async/Log.h"
#include "Platform/PlatformError.h"

#include <spa/param/audio/raw.h>

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

} // namespace

PipeWireOutputStream::PipeWireOutputStream(std::shared_ptr<PipeWireGraph> graph, const AudioFormat& format,
                                           std::shared_ptr<PipeWireVoice> voice)
    : PipeWireStream(std::move(graph), format), voice_(std::move(voice)) {
  graph_->connect(snapshotPatience);
  PipeWireConnection& connection = graph_->connection;
  const LoopLock lock(connection.loop());
  pw_loop* loop = pw_thread_loop_get_loop(connection.loop());
  quiet_ = pw_loop_add_event(loop, onQuiet, this);
  if (quiet_ == nullptr || !begin()) {
    if (quiet_ != nullptr) pw_loop_destroy_source(loop, quiet_);
    throw PlatformError("PipeWire", EIO, "The sound server refuses the stream.");
  }
  connection.addListener(*this);
}

PipeWireOutputStream::~PipeWireOutputStream() {
  PipeWireConnection& connection = graph_->connection;
  const LoopLock lock(connection.loop());
  connection.removeListener(*this);
  awaitChange();
  end();
  pw_loop_destroy_source(pw_thread_loop_get_loop(connection.loop()), quiet_);
}

// The library leaks a descriptor with a stream that is destroyed while the server links it.
void PipeWireOutputStream::awaitChange() {
  graph_->connection.waitFor([this] { return stream() == nullptr || active_ == flowing_ || failed_; },
                             changePatience);
}

void PipeWireOutputStream::settled() {
  if (graph_->connection.core() == nullptr || (stream() != nullptr && !failed_)) return;
  end();
  voice_->queue.dropOverdue(); // speech from the time without a server would come with the next one's
  if (!begin()) graph_->connection.retryIn(retryInterval);
}

void PipeWireOutputStream::disconnected() { end(); }

bool PipeWireOutputStream::begin() {
  active_ = true;
  pw_properties* properties =
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", PW_KEY_MEDIA_NAME,
                        "Tolvera Dub", PW_KEY_NODE_NAME, "tolvera-dub", PW_KEY_APP_NAME, "Tolvera", nullptr);
  const bool begun = open(PW_DIRECTION_OUTPUT, "Tolvera Dub", properties) >= 0;
  if (!begun) end();
  return begun;
}

void PipeWireOutputStream::end() {
  close();
  active_ = flowing_ = failed_ = false;
}

void PipeWireOutputStream::wake() {
  const LoopLock lock(graph_->connection.loop());
  if (stream() == nullptr || active_) return;
  active_ = true;
  pw_stream_set_active(stream(), true);
}

void PipeWireOutputStream::onQuiet(void* data, std::uint64_t /*count*/) {
  auto* self = static_cast<PipeWireOutputStream*>(data);
  if (self->stream() == nullptr || !self->active_ || self->voice_->queue.hasSound()) return;
  self->active_ = false;
  pw_stream_set_active(self->stream(), false);
}

// A stream without an output reports a failure, and goes on when there is an output again. If it does not, a
// new stream is tried.
void PipeWireOutputStream::onState(pw_stream_state state, const char* /*error*/) {
  failed_ = state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED;
  if (failed_) graph_->connection.retryIn(retryInterval);
  const bool flowed = std::exchange(flowing_, state == PW_STREAM_STATE_STREAMING);
  if (flowing_ && !flowed) {
    log::trace(log::Category::sound, "dub's stream: float, ", format_.channelCount, " channel, ",
               format_.sampleRate, " Hz");
  }
  pw_thread_loop_signal(graph_->connection.loop(), false);
}

void PipeWireOutputStream::onProcess() noexcept {
  pw_buffer* taken = pw_stream_dequeue_buffer(stream());
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
  pw_stream_queue_buffer(stream(), taken);

  const auto limit = static_cast<std::size_t>(format_.sampleRate * quietSeconds);
  silentFrames_ = sound > 0 ? 0 : silentFrames_ + frames;
  if (silentFrames_ < limit) return;
  silentFrames_ = 0;
  pw_loop_signal_event(pw_thread_loop_get_loop(graph_->connection.loop()), quiet_);
}

} // namespace tolvera::adapters
