#include "Platform/Linux/Sound/PipeWireStream.h"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace tolvera::adapters {

namespace {

using platform::AudioFormat;

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

} // namespace

struct PipeWireStream::Events {
  static void state(void* data, pw_stream_state /*old*/, pw_stream_state state, const char* error) {
    auto* self = static_cast<PipeWireStream*>(data);
    if (self->open_) self->onState(state, error);
  }
  static void process(void* data) { static_cast<PipeWireStream*>(data)->onProcess(); }
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

PipeWireStream::PipeWireStream(std::shared_ptr<PipeWireGraph> graph, const AudioFormat& format)
    : graph_(std::move(graph)), format_(format) {}

int PipeWireStream::open(pw_direction direction, const char* name, pw_properties* properties,
                         const std::vector<std::uint32_t>& positions) {
  stream_.reset(pw_stream_new(graph_->connection.core(), name, properties));
  if (!stream_) return -errno;
  open_ = true;
  pw_stream_add_listener(stream_.get(), hook_.get(), &Events::all(), this);
  std::array<std::uint8_t, 1024> storage{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage.data(), static_cast<std::uint32_t>(storage.size()));
  spa_audio_info_raw info = streamFormat(format_, positions);
  const spa_pod* params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                  PW_STREAM_FLAG_RT_PROCESS);
  return pw_stream_connect(stream_.get(), direction, PW_ID_ANY, flags, params, 1);
}

void PipeWireStream::close() {
  open_ = false;
  // Disconnecting ends the real-time callback, which uses what is destroyed next.
  if (stream_) pw_stream_disconnect(stream_.get());
  hook_.remove();
  stream_.reset();
}

} // namespace tolvera::adapters
