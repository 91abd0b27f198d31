#include "Platform/Linux/Sound/Graph/PipeWireSources.h"

#include <spa/param/audio/format-utils.h>
#include <spa/pod/iter.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace tolvera::adapters {

namespace {

// What a device that does not tell its rate is taken to run at: the usual rate of the graph.
constexpr double usualRate = 48000;

const char* property(const spa_dict* properties, const char* key) {
  const char* value = properties != nullptr ? spa_dict_lookup(properties, key) : nullptr;
  return value != nullptr ? value : "";
}

// The number behind a property, alternatives resolved to the preferred one.
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

// One input, bound for what the registry does not say.
struct PipeWireSources::Node {
  Node(PipeWireConnection& theConnection, const PipeWireConnection::Global& global)
      : connection(theConnection) {
    source.name = property(global.properties, PW_KEY_NODE_NAME);
    source.serial = std::strtoull(property(global.properties, PW_KEY_OBJECT_SERIAL), nullptr, 10);
    source.priority = std::strtol(property(global.properties, PW_KEY_PRIORITY_SESSION), nullptr, 10);
    source.format = {usualRate, 1};
    proxy.reset(static_cast<pw_node*>(
        pw_registry_bind(connection.registry(), global.id, global.type, PW_VERSION_NODE, 0)));
    if (!proxy) return;
    pw_node_add_listener(proxy.get(), hook.get(), &events(), this);
    std::uint32_t wanted[] = {SPA_PARAM_EnumFormat};
    pw_node_subscribe_params(proxy.get(), wanted, 1);
  }

  static const pw_node_events& events();
  void onInfo(const pw_node_info& info);
  void onFormat(const spa_pod* format);

  PipeWireConnection& connection;
  Source source;
  bool portsKnown = false;
  Proxy<pw_node> proxy;
  Hook hook;
};

const pw_node_events& PipeWireSources::Node::events() {
  static const pw_node_events events = [] {
    pw_node_events made{};
    made.version = PW_VERSION_NODE_EVENTS;
    made.info = [](void* data, const pw_node_info* info) { static_cast<Node*>(data)->onInfo(*info); };
    made.param = [](void* data, int /*sequence*/, std::uint32_t id, std::uint32_t index,
                    std::uint32_t /*next*/, const spa_pod* param) {
      if (id == SPA_PARAM_EnumFormat && index == 0) static_cast<Node*>(data)->onFormat(param);
    };
    return made;
  }();
  return events;
}

// Once the session manager has set a node up, it has one output port a channel.
void PipeWireSources::Node::onInfo(const pw_node_info& info) {
  if (info.n_output_ports == 0) return;
  portsKnown = true;
  if (source.format.channelCount == info.n_output_ports) return;
  source.format.channelCount = info.n_output_ports;
  connection.changed();
}

void PipeWireSources::Node::onFormat(const spa_pod* format) {
  const Source before = source;
  if (const auto rate = preferredInt(format, SPA_FORMAT_AUDIO_rate); rate && *rate > 0) {
    source.format.sampleRate = *rate;
  }
  if (const auto channels = preferredInt(format, SPA_FORMAT_AUDIO_channels);
      channels && *channels > 0 && *channels <= int{SPA_AUDIO_MAX_CHANNELS} && !portsKnown) {
    source.format.channelCount = static_cast<std::uint32_t>(*channels);
  }
  if (const spa_pod_prop* found = spa_pod_find_prop(format, nullptr, SPA_FORMAT_AUDIO_position)) {
    std::uint32_t positions[SPA_AUDIO_MAX_CHANNELS];
    const std::uint32_t count =
        spa_pod_copy_array(&found->value, SPA_TYPE_Id, positions, SPA_AUDIO_MAX_CHANNELS);
    source.positions.assign(positions, positions + count);
  }
  if (source.format != before.format || source.positions != before.positions) connection.changed();
}

PipeWireSources::PipeWireSources(PipeWireConnection& connection, const PipeWireMetadata& metadata)
    : connection_(connection), metadata_(metadata) {
  const LoopLock lock(connection_.loop());
  connection_.addListener(*this);
}

PipeWireSources::~PipeWireSources() {
  const LoopLock lock(connection_.loop());
  connection_.removeListener(*this);
  nodes_.clear();
}

std::optional<PipeWireSources::Source> PipeWireSources::defaultSource(std::uint64_t current) const {
  const std::string name = metadata_.defaultNode("default.audio.source");
  const Source* best = nullptr;
  for (const auto& [id, node] : nodes_) {
    const Source& source = node->source;
    if (source.name == name || (name.empty() && source.serial == current)) return source;
    if (best == nullptr || source.priority > best->priority) best = &source;
  }
  return best != nullptr ? std::optional(*best) : std::nullopt;
}

void PipeWireSources::added(const PipeWireConnection::Global& global) {
  if (std::strcmp(global.type, PW_TYPE_INTERFACE_Node) != 0) return;
  const std::string_view mediaClass = property(global.properties, PW_KEY_MEDIA_CLASS);
  if (!mediaClass.starts_with("Audio/Source")) return;
  nodes_[global.id] = std::make_unique<Node>(connection_, global);
  connection_.changed();
}

void PipeWireSources::removed(std::uint32_t id) {
  if (nodes_.erase(id) > 0) connection_.changed();
}

void PipeWireSources::disconnected() { nodes_.clear(); }

} // namespace tolvera::adapters
