#include "Platform/Linux/Sound/Graph/PipeWireSource.h"

#include "Platform/Linux/Sound/Graph/PipeWireProperties.h"

#include <spa/param/audio/format-utils.h>
#include <spa/pod/iter.h>

#include <cstring>
#include <optional>

namespace tolvera::adapters {

namespace {

// The usual rate of the graph, assumed for a device that does not tell its own.
constexpr double usualRate = 48000;

// The number behind a property. Of several choices it is the preferred one.
std::optional<int> preferredInt(const spa_pod* format, std::uint32_t key) {
  const spa_pod_prop* found = spa_pod_find_prop(format, nullptr, key);
  if (found == nullptr) return std::nullopt;
  std::uint32_t count = 0;
  std::uint32_t choice = 0;
  const spa_pod* value = spa_pod_get_values(&found->value, &count, &choice);
  std::int32_t number = 0;
  if (count == 0 || SPA_POD_TYPE(value) != SPA_TYPE_Int) return std::nullopt;
  std::memcpy(&number, SPA_POD_BODY_CONST(value), sizeof number);
  return number;
}

} // namespace

PipeWireSourceNode::PipeWireSourceNode(PipeWireConnection& theConnection,
                                       const PipeWireConnection::Global& global)
    : PipeWireServerObject(theConnection, global, PW_VERSION_NODE) {
  source_.name = property(global.properties, PW_KEY_NODE_NAME);
  source_.serial = numberIn(global.properties, PW_KEY_OBJECT_SERIAL);
  source_.priority = static_cast<long>(numberIn(global.properties, PW_KEY_PRIORITY_SESSION));
  source_.format = {usualRate, 1};
  if (!proxy) return;
  pw_node_add_listener(proxy.get(), hook.get(), &events(), this);
  std::uint32_t wanted[] = {SPA_PARAM_EnumFormat};
  pw_node_subscribe_params(proxy.get(), wanted, 1);
}

const pw_node_events& PipeWireSourceNode::events() {
  static const pw_node_events events = [] {
    pw_node_events made{};
    made.version = PW_VERSION_NODE_EVENTS;
    made.info = [](void* data, const pw_node_info* info) {
      static_cast<PipeWireSourceNode*>(data)->onInfo(*info);
    };
    made.param = [](void* data, int /*sequence*/, std::uint32_t id, std::uint32_t index,
                    std::uint32_t /*next*/, const spa_pod* param) {
      if (id == SPA_PARAM_EnumFormat && index == 0) static_cast<PipeWireSourceNode*>(data)->onFormat(param);
    };
    return made;
  }();
  return events;
}

// Once the session manager has set a node up, it has one output port for each channel.
void PipeWireSourceNode::onInfo(const pw_node_info& info) {
  if (info.n_output_ports == 0) return;
  portsKnown_ = true;
  if (source_.format.channelCount == info.n_output_ports) return;
  source_.format.channelCount = info.n_output_ports;
  connection.changed();
}

void PipeWireSourceNode::onFormat(const spa_pod* format) {
  const PipeWireSource before = source_;
  if (const auto rate = preferredInt(format, SPA_FORMAT_AUDIO_rate); rate && *rate > 0) {
    source_.format.sampleRate = *rate;
  }
  if (const auto channels = preferredInt(format, SPA_FORMAT_AUDIO_channels);
      channels && *channels > 0 && *channels <= int{SPA_AUDIO_MAX_CHANNELS} && !portsKnown_) {
    source_.format.channelCount = static_cast<std::uint32_t>(*channels);
  }
  if (const spa_pod_prop* found = spa_pod_find_prop(format, nullptr, SPA_FORMAT_AUDIO_position)) {
    std::uint32_t positions[SPA_AUDIO_MAX_CHANNELS];
    const std::uint32_t count =
        spa_pod_copy_array(&found->value, SPA_TYPE_Id, positions, SPA_AUDIO_MAX_CHANNELS);
    source_.positions.assign(positions, positions + count);
  }
  if (source_ != before) connection.changed();
}

} // namespace tolvera::adapters
