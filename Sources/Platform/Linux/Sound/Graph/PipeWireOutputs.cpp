#include "Platform/Linux/Sound/Graph/PipeWireOutputs.h"

#include <initializer_list>
#include <string_view>
#include <utility>

namespace tolvera::adapters {

using platform::AudioObjectID;
using platform::fourCharacterCode;
using platform::noAudioObject;

namespace {

constexpr std::string_view standIn = "auto_null"; // made by the session manager when there is no output

std::string_view first(const PipeWireOutputs::Properties& properties,
                       std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    const auto found = properties.find(key);
    if (found != properties.end() && !found->second.empty()) return found->second;
  }
  return {};
}

} // namespace

std::uint32_t PipeWireOutputs::transport(const Properties& properties) {
  const std::string_view api = first(properties, {PW_KEY_DEVICE_API});
  const std::string_view bus = first(properties, {PW_KEY_DEVICE_BUS});
  if (api.starts_with("bluez") || bus == "bluetooth") return fourCharacterCode("blue");
  if (bus == "usb") return fourCharacterCode("usb ");
  for (const char* key : {"device.profile.name", "api.alsa.path", "node.name"}) {
    if (first(properties, {key}).find("hdmi") != std::string_view::npos) return fourCharacterCode("hdmi");
  }
  // Cards on the board itself: most are on a PCI bus, those of a system on a chip on none.
  const bool onBoard = bus.empty() || bus == "pci" || bus == "isa" || bus == "platform";
  return api == "alsa" && onBoard ? fourCharacterCode("bltn") : 0;
}

PipeWireOutputs::PipeWireOutputs(PipeWireConnection& connection, const PipeWireObjects& objects,
                                 const PipeWireMetadata& metadata, PipeWireObjectIDs& ids)
    : connection_(connection), objects_(objects), metadata_(metadata), ids_(ids) {
  const LoopLock lock(connection_.loop());
  connection_.addListener(*this);
}

PipeWireOutputs::~PipeWireOutputs() {
  const LoopLock lock(connection_.loop());
  connection_.removeListener(*this);
}

void PipeWireOutputs::settled() {
  const std::string defaultName = metadata_.defaultNode("default.audio.sink");
  const AudioObjectID before = std::exchange(default_, noAudioObject);
  decltype(bySerial_) bySerial;
  list_.clear();
  for (const auto& [node, sink] : objects_.sinks()) {
    const auto known = bySerial_.find(sink.serial);
    const AudioObjectID id = known != bySerial_.end() ? known->second : ids_.next();
    bySerial.emplace(sink.serial, id);
    const std::string_view name = first(sink.properties, {PW_KEY_NODE_DESCRIPTION, PW_KEY_NODE_NICK});
    list_[id] = {id, transport(sink.properties), name.empty() ? sink.name : std::string(name)};
    // No default is named for a moment while it changes: the old one stands until it is known.
    const bool stands = defaultName.empty() && id == before;
    if (sink.name != standIn && (sink.name == defaultName || stands)) default_ = id;
  }
  bySerial_ = std::move(bySerial);
}

void PipeWireOutputs::disconnected() {
  bySerial_.clear();
  list_.clear();
  default_ = noAudioObject;
}

} // namespace tolvera::adapters
