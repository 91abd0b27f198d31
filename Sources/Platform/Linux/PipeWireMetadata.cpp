#include "Platform/Linux/PipeWireMetadata.h"

#include <spa/utils/json.h>

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace tolvera::adapters {

namespace {

constexpr std::chrono::seconds checkDelay{1};

// {"name": "..."}
std::string nameIn(const char* json) {
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

bool isDefaults(const PipeWireConnection::Global& global) {
  if (global.properties == nullptr || std::strcmp(global.type, PW_TYPE_INTERFACE_Metadata) != 0) return false;
  const char* name = spa_dict_lookup(global.properties, PW_KEY_METADATA_NAME);
  return name != nullptr && std::strcmp(name, "default") == 0;
}

} // namespace

// What one proxy of the server's object has told so far.
struct PipeWireMetadata::Binding {
  explicit Binding(PipeWireMetadata& theOwner) : owner(theOwner) {}

  static const pw_metadata_events& events() {
    static const pw_metadata_events events = [] {
      pw_metadata_events made{};
      made.version = PW_VERSION_METADATA_EVENTS;
      made.property = [](void* data, std::uint32_t subject, const char* key, const char* /*type*/,
                         const char* value) {
        if (subject == PW_ID_CORE) static_cast<Binding*>(data)->set(key, value);
        return 0;
      };
      return made;
    }();
    return events;
  }

  void set(const char* key, const char* value) {
    const auto before = defaults;
    if (key == nullptr) {
      defaults.clear();
    } else if (value == nullptr) {
      defaults.erase(key);
    } else {
      defaults[key] = nameIn(value);
    }
    if (defaults != before) owner.onChange(*this);
  }

  PipeWireMetadata& owner;
  std::map<std::string, std::string> defaults;
  Proxy<pw_metadata> proxy;
  Hook hook;
};

PipeWireMetadata::PipeWireMetadata(PipeWireConnection& connection) : connection_(connection) {
  const LoopLock lock(connection_.loop());
  connection_.addListener(*this);
}

PipeWireMetadata::~PipeWireMetadata() {
  const LoopLock lock(connection_.loop());
  connection_.removeListener(*this);
  disconnected();
}

std::string PipeWireMetadata::defaultNode(const std::string& key) const {
  if (!current_) return {};
  const auto found = current_->defaults.find(key);
  return found == current_->defaults.end() ? std::string() : found->second;
}

void PipeWireMetadata::added(const PipeWireConnection::Global& global) {
  if (isDefaults(global)) {
    disconnected();
    id_ = global.id;
    current_ = bind();
    connection_.changed();
  }
  somethingHappened();
}

void PipeWireMetadata::removed(std::uint32_t id) {
  if (id == id_) {
    disconnected();
    connection_.changed();
  }
  somethingHappened();
}

// The listeners that come after this one hear of what a check has found out in the same round.
void PipeWireMetadata::settled() {
  if (fresh_) current_ = std::move(fresh_);
  if (!checkDue_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < *checkDue_) {
    connection_.retryIn(std::chrono::ceil<std::chrono::milliseconds>(*checkDue_ - now));
    return;
  }
  checkDue_.reset();
  fresh_ = bind();
  connection_.changed();
  if (happenedSince_) somethingHappened();
}

void PipeWireMetadata::disconnected() {
  current_.reset();
  fresh_.reset();
  id_ = PW_ID_ANY;
  checkDue_.reset();
}

void PipeWireMetadata::somethingHappened() {
  happenedSince_ = checkDue_.has_value();
  if (id_ == PW_ID_ANY || checkDue_) return;
  checkDue_ = std::chrono::steady_clock::now() + checkDelay;
  connection_.retryIn(checkDelay);
}

std::unique_ptr<PipeWireMetadata::Binding> PipeWireMetadata::bind() {
  auto binding = std::make_unique<Binding>(*this);
  binding->proxy.reset(static_cast<pw_metadata*>(
      pw_registry_bind(connection_.registry(), id_, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0)));
  if (!binding->proxy) return nullptr;
  pw_metadata_add_listener(binding->proxy.get(), binding->hook.get(), &Binding::events(), binding.get());
  return binding;
}

void PipeWireMetadata::onChange(const Binding& binding) {
  if (&binding != current_.get()) return;
  somethingHappened();
  connection_.changed();
}

} // namespace tolvera::adapters
