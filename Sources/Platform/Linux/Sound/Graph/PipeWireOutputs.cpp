#include "Platform/Linux/Sound/Graph/PipeWireOutputs.h"

#include "Async/Log.h"

#include <boost/algorithm/string/predicate.hpp>

#include <initializer_list>
#include <string_view>
#include <utility>

namespace tolvera::adapters {

using platform::AudioObjectID;
using platform::noAudioObject;
namespace transports = platform::transports;

namespace {

constexpr std::string_view standIn = "auto_null"; // made by the session manager when there is no output

using Properties = PropertyMap; // of a sink and its device

// The first of the properties that says anything.
std::string_view first(const Properties& properties, std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    const auto found = properties.find(key);
    if (found != properties.end() && !found->second.empty()) return found->second;
  }
  return {};
}

// Sound that goes with a picture. Profiles say so in several ways ("hdmi-stereo", "HiFi: HDMI1: sink",
// "HDMI / DisplayPort 1 Output").
bool isMonitor(const Properties& properties) {
  for (const char* key : {"device.profile.name", "device.profile.description", "api.alsa.path",
                          PW_KEY_NODE_NAME, PW_KEY_NODE_DESCRIPTION}) {
    const std::string_view text = first(properties, {key});
    for (const char* word : {"hdmi", "displayport"})
      if (boost::algorithm::icontains(text, word)) return true;
  }
  return false;
}

std::uint32_t transport(const Properties& properties) {
  const std::string_view api = first(properties, {PW_KEY_DEVICE_API});
  const std::string_view bus = first(properties, {PW_KEY_DEVICE_BUS});
  if (api.starts_with("bluez") || bus == "bluetooth") return transports::bluetooth;
  if (bus == "usb") return transports::usb;
  if (isMonitor(properties)) return transports::hdmi;
  // A card on the board itself is on a PCI bus, or on no bus in a system on a chip.
  const bool onBoard = bus.empty() || bus == "pci" || bus == "isa" || bus == "platform";
  return api == "alsa" && onBoard ? transports::builtIn : 0;
}

} // namespace

PipeWireOutputs::PipeWireOutputs(const PipeWireObjects& objects, const PipeWireMetadata& metadata,
                                 PipeWireObjectIDs& ids)
    : objects_(objects), metadata_(metadata), ids_(ids) {}

void PipeWireOutputs::update() {
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
    // While the default changes, none is named for a moment: the old one stays until the new one is known.
    const bool stays = defaultName.empty() && id == before;
    if (sink.name != standIn && (sink.name == defaultName || stays)) default_ = id;
  }
  bySerial_ = std::move(bySerial);
  if (default_ == before) return;
  const auto now = list_.find(default_);
  log::trace(log::Category::sound, "default output: ", now == list_.end() ? "none" : now->second.name);
}

void PipeWireOutputs::clear() {
  bySerial_.clear();
  list_.clear();
  default_ = noAudioObject;
}

} // namespace tolvera::adapters
