#include "Platform/Linux/Sound/PipeWireCapture.h"

#include "Async/Log.h"
#include "Platform/PlatformError.h"

#include <spa/param/audio/raw.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace tolvera::adapters {

namespace {

using platform::AudioFormat;
using platform::PlatformError;

constexpr std::chrono::seconds snapshotPatience{2};
constexpr std::chrono::seconds openingPatience{1};
constexpr std::chrono::milliseconds firstRetry{20};
constexpr std::chrono::milliseconds laterRetries{500};
constexpr std::uint32_t blocksPerSecond =
    40; // the requested latency, rounded by the graph to 1024 frames at 48 kHz

pw_properties* streamProperties(const AudioFormat& format, std::uint32_t bufferSize,
                                const std::string& target) {
  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_NAME, "Tolvera Microphone",
      PW_KEY_NODE_NAME, "tolvera-microphone", PW_KEY_APP_NAME, "Tolvera", PW_KEY_NODE_DONT_RECONNECT, "true",
      PW_KEY_TARGET_OBJECT, target.c_str(), nullptr);
  const auto rate = static_cast<std::uint32_t>(format.sampleRate);
  pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u",
                     std::clamp(rate / blocksPerSecond, 1U, std::max(bufferSize, 1U)), rate);
  return properties;
}

} // namespace

PipeWireCapture::PipeWireCapture(std::shared_ptr<PipeWireGraph> graph, const AudioFormat& format,
                                 std::uint32_t bufferSize, platform::AudioInputNode::TapBlock block)
    : PipeWireStream(std::move(graph), format), bufferSize_(bufferSize),
      worker_(format, bufferSize, std::move(block)) {
  graph_->connect(snapshotPatience);
  PipeWireConnection& connection = graph_->connection;
  const LoopLock lock(connection.loop());
  connection.addListener(*this);
  followDefault();
  awaitOpening();
  if (flowing_ || (stream() != nullptr && !failed_)) return;
  connection.removeListener(*this);
  end();
  if (failure_.empty()) throw graph_->failures.noInput();
  throw PlatformError("PipeWire", EIO, failure_);
}

PipeWireCapture::~PipeWireCapture() {
  const LoopLock lock(graph_->connection.loop());
  graph_->connection.removeListener(*this);
  end();
}

// Sound is about to come when it returns. If the device takes longer to start, the capture goes on opening by
// itself. (The wait has a second reason: the library leaks a descriptor with a stream that is destroyed while
// the server links it.)
void PipeWireCapture::awaitOpening() {
  graph_->connection.waitFor([this] { return stream() == nullptr || flowing_; }, openingPatience);
}

void PipeWireCapture::settled() { followDefault(); }

void PipeWireCapture::disconnected() { end(); }

void PipeWireCapture::followDefault() {
  const auto source = graph_->defaultSource(openSerial_);
  if (stream() != nullptr && !failed_ && source && source->serial == openSerial_) return;
  end();
  if (source) openOn(*source);
}

void PipeWireCapture::openOn(const PipeWireSource& source) {
  openSerial_ = source.serial;
  // With the source's own layout its channels arrive unmixed.
  const int result = open(PW_DIRECTION_INPUT, "Tolvera Microphone",
                          streamProperties(format_, bufferSize_, source.name), source.positions);
  if (result < 0) onState(PW_STREAM_STATE_ERROR, std::strerror(-result));
}

void PipeWireCapture::end() {
  close();
  openSerial_ = 0;
  flowing_ = failed_ = false;
}

// A stream that has ended for any reason is replaced while its source is there. The first retry comes soon,
// because the session manager sometimes confuses a new stream with one that has just ended.
void PipeWireCapture::onState(pw_stream_state state, const char* error) {
  if (state == PW_STREAM_STATE_STREAMING) {
    if (!flowing_) {
      log::trace(log::Category::sound, "microphone's stream: float, ", format_.channelCount, " channels, ",
                 format_.sampleRate, " Hz");
    }
    flowing_ = true;
    failures_ = 0;
  }
  if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
    graph_->connection.retryIn(failures_++ == 0 ? firstRetry : laterRetries);
    failed_ = true;
    flowing_ = false;
    failure_ = error != nullptr ? error : "";
    log::warn(log::Category::sound, "microphone's stream ended: ", failure_);
  }
  pw_thread_loop_signal(graph_->connection.loop(), false);
}

// Real-time thread.
void PipeWireCapture::onProcess() noexcept {
  while (pw_buffer* taken = pw_stream_dequeue_buffer(stream())) {
    const spa_buffer& buffer = *taken->buffer;
    std::array<const float*, SPA_AUDIO_MAX_CHANNELS> planes{};
    std::size_t frames = 0;
    for (std::uint32_t c = 0; c < buffer.n_datas && c < planes.size(); ++c) {
      const spa_data& data = buffer.datas[c];
      if (data.data == nullptr || data.chunk == nullptr) continue;
      const std::uint32_t offset = std::min(data.chunk->offset, data.maxsize);
      const std::size_t size = std::min(data.chunk->size, data.maxsize - offset) / sizeof(float);
      planes[c] = reinterpret_cast<const float*>(static_cast<const std::uint8_t*>(data.data) + offset);
      frames = frames == 0 ? size : std::min(frames, size);
    }
    if (frames > 0) worker_.deliver(planes.data(), frames);
    pw_stream_queue_buffer(stream(), taken);
  }
}

} // namespace tolvera::adapters
