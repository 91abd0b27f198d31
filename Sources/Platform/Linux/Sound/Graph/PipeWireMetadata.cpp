#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"

#include "Platform/Linux/Sound/Graph/PipeWireProperties.h"

#include <spa/utils/json.h>

#include <array>
#include <cstring>
#include <string_view>

namespace tolvera::adapters {

std::string PipeWireMetadata::nameIn(const char* json) {
  std::array<spa_json, 2> levels{};
  spa_json_init(&levels[0], json, std::strlen(json));
  if (spa_json_enter_object(&levels[0], &levels[1]) <= 0) return {};
  std::array<char, 1024> key{};
  std::array<char, 1024> value{};
  while (spa_json_get_string(&levels[1], key.data(), static_cast<int>(key.size())) > 0) {
    if (std::string_view(key.data()) == "name") {
      const bool text = spa_json_get_string(&levels[1], value.data(), static_cast<int>(value.size())) > 0;
      return text ? value.data() : std::string();
    }
    const char* skipped = nullptr;
    if (spa_json_next(&levels[1], &skipped) <= 0) break;
  }
  return {};
}

struct PipeWireMetadata::Events {
  static int onProperty(void* data, std::uint32_t subject, const char* key, const char* /*type*/,
                        const char* value) {
    auto* self = static_cast<PipeWireMetadata*>(data);
    if (subject == PW_ID_CORE) self->set(key, value);
    return 0;
  }
  static const pw_metadata_events& all() {
    static const pw_metadata_events events = [] {
      pw_metadata_events made{};
      made.version = PW_VERSION_METADATA_EVENTS;
      made.property = onProperty;
      return made;
    }();
    return events;
  }
};

std::string PipeWireMetadata::defaultNode(const std::string& key) const {
  const auto found = defaults_.find(key);
  return found == defaults_.end() ? std::string() : found->second;
}

void PipeWireMetadata::added(const PipeWireConnection::Global& global) {
  if (std::string_view(global.type) != PW_TYPE_INTERFACE_Metadata) return;
  if (property(global.properties, PW_KEY_METADATA_NAME) != "default") return;
  clear();
  id_ = global.id;
  proxy_.reset(static_cast<pw_metadata*>(
      pw_registry_bind(connection_.registry(), global.id, global.type, PW_VERSION_METADATA, 0)));
  if (proxy_) pw_metadata_add_listener(proxy_.get(), hook_.get(), &Events::all(), this);
  connection_.changed();
}

void PipeWireMetadata::removed(std::uint32_t id) {
  if (id != id_) return;
  clear();
  connection_.changed();
}

void PipeWireMetadata::clear() {
  hook_.remove();
  proxy_.reset();
  id_ = PW_ID_ANY;
  defaults_.clear();
}

void PipeWireMetadata::set(const char* key, const char* value) {
  const auto before = defaults_;
  if (key == nullptr) {
    defaults_.clear();
  } else if (value == nullptr) {
    defaults_.erase(key);
  } else {
    defaults_[key] = nameIn(value);
  }
  if (defaults_ != before) connection_.changed();
}

} // namespace tolvera::adapters
