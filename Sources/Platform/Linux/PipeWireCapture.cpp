#include "Platform/Linux/PipeWireCapture.h"

#include "Platform/PlatformError.h"

#include <spa/param/audio/format-utils.h>

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
constexpr std::uint32_t blocksASecond = 40; // the latency asked for: at 48 kHz the usual 1024 frames

PlatformError failure(int code, const std::string& text) { return {"PipeWire", code, text}; }

// The source's own layout, so that its channels arrive as they are; the usual one if it is unknown.
spa_audio_info_raw streamFormat(const AudioFormat& format, const std::vector<std::uint32_t>& positions) {
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.rate = static_cast<std::uint32_t>(format.sampleRate);
  info.channels = std::min<std::uint32_t>(format.channelCount, SPA_AUDIO_MAX_CHANNELS);
  for (std::uint32_t c = 0; c < info.channels; ++c) {
    if (positions.size() == info.channels) {
      info.position[c] = positions[c];
    } else if (info.channels == 1) {
      info.position[c] = SPA_AUDIO_CHANNEL_MONO;
    } else if (info.channels == 2) {
      info.position[c] = c == 0 ? SPA_AUDIO_CHANNEL_FL : SPA_AUDIO_CHANNEL_FR;
    } else {
      info.position[c] = SPA_AUDIO_CHANNEL_START_Aux + c;
    }
  }
  return info;
}

pw_properties* streamProperties(const AudioFormat& format, std::uint32_t bufferSize,
                                const std::string& target) {
  pw_properties* properties = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_NAME, "Tolvera Microphone",
      PW_KEY_NODE_NAME, "tolvera-microphone", PW_KEY_APP_NAME, "Tolvera", PW_KEY_NODE_DONT_RECONNECT, "true",
      PW_KEY_TARGET_OBJECT, target.c_str(), nullptr);
  const auto rate = static_cast<std::uint32_t>(format.sampleRate);
  pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u",
                     std::clamp(rate / blocksASecond, 1U, std::max(bufferSize, 1U)), rate);
  return properties;
}

} // namespace

struct PipeWireCapture::Events {
  static void state(void* data, pw_stream_state /*old*/, pw_stream_state state, const char* error) {
    static_cast<PipeWireCapture*>(data)->onState(state, error);
  }
  static void process(void* data) { static_cast<PipeWireCapture*>(data)->onProcess(); }
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

PipeWireCapture::PipeWireCapture(std::shared_ptr<PipeWireGraph> graph, const AudioFormat& format,
                                 std::uint32_t bufferSize, platform::AudioInputNode::TapBlock block)
    : graph_(std::move(graph)), format_(format), bufferSize_(bufferSize),
      worker_(format, bufferSize, std::move(block)) {
  PipeWireConnection& connection = graph_->connection;
  if (!connection.open(snapshotPatience)) throw failure(ECONNREFUSED, "The sound server does not answer.");
  const LoopLock lock(connection.loop());
  connection.addListener(*this);
  follow();
  awaitOpening();
  if (flowing_ || (stream_ && !failed_)) return;
  connection.removeListener(*this);
  close();
  throw failure(ENODEV, failure_.empty() ? "There is no audio input." : failure_);
}

PipeWireCapture::~PipeWireCapture() {
  const LoopLock lock(graph_->connection.loop());
  graph_->connection.removeListener(*this);
  close();
}

// Sound is about to come when it returns. (Besides, the library loses a descriptor with a stream that is
// dropped while the server links it.) A device may take longer to start; then the capture goes on opening
// by itself.
void PipeWireCapture::awaitOpening() {
  pw_thread_loop* loop = graph_->connection.loop();
  timespec deadline{};
  pw_thread_loop_get_time(loop, &deadline, std::chrono::nanoseconds(openingPatience).count());
  while (stream_ && !flowing_) {
    if (pw_thread_loop_timed_wait_full(loop, &deadline) != 0) break;
  }
}

void PipeWireCapture::settled() { follow(); }

void PipeWireCapture::disconnected() { close(); }

void PipeWireCapture::follow() {
  const auto source = graph_->sources.defaultSource(openSerial_);
  if (stream_ && !failed_ && source && source->serial == openSerial_) return;
  close();
  if (source) open(*source);
}

void PipeWireCapture::open(const PipeWireSources::Source& source) {
  pw_properties* properties = streamProperties(format_, bufferSize_, source.name);
  stream_.reset(pw_stream_new(graph_->connection.core(), "Tolvera Microphone", properties));
  openSerial_ = source.serial;
  int result = -errno;
  if (stream_) {
    pw_stream_add_listener(stream_.get(), hook_.get(), &Events::all(), this);
    std::array<std::uint8_t, 1024> storage{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
    spa_audio_info_raw info = streamFormat(format_, source.positions);
    const spa_pod* params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                    PW_STREAM_FLAG_RT_PROCESS);
    result = pw_stream_connect(stream_.get(), PW_DIRECTION_INPUT, PW_ID_ANY, flags, params, 1);
  }
  if (result < 0) onState(PW_STREAM_STATE_ERROR, std::strerror(-result));
}

void PipeWireCapture::close() {
  openSerial_ = 0; // what the stream says from here on is no news
  // Disconnecting ends the real-time callback; only then may what it uses go.
  if (stream_) pw_stream_disconnect(stream_.get());
  hook_.remove();
  stream_.reset();
  flowing_ = failed_ = false;
}

// Whatever ended the stream, a new one is tried while the source is there. Soon at first: the session
// manager now and then takes a new stream for one that it has just seen off.
void PipeWireCapture::onState(pw_stream_state state, const char* error) {
  if (openSerial_ == 0) return;
  if (state == PW_STREAM_STATE_STREAMING) {
    flowing_ = true;
    failures_ = 0;
  }
  if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
    graph_->connection.retryIn(failures_++ == 0 ? firstRetry : laterRetries);
    failed_ = true;
    flowing_ = false;
    failure_ = error != nullptr ? error : "";
  }
  pw_thread_loop_signal(graph_->connection.loop(), false);
}

// Real-time thread.
void PipeWireCapture::onProcess() noexcept {
  while (pw_buffer* taken = pw_stream_dequeue_buffer(stream_.get())) {
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
    pw_stream_queue_buffer(stream_.get(), taken);
  }
}

} // namespace tolvera::adapters
