#include "Platform/Linux/Sound/Graph/PipeWireObjects.h"

#include "Platform/Linux/Sound/Graph/PipeWireProperties.h"
#include "Platform/Linux/Sound/Graph/PipeWireServerObject.h"

#include <cstdlib>
#include <fstream>
#include <string_view>

#include <unistd.h>

namespace tolvera::adapters {

namespace {

using Process = PipeWireObjects::Process;

// When the process started: the 22nd field. The second one, the program's name in parentheses, may hold any
// text.
std::uint64_t startOf(std::int32_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text(1024, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size())); // fails if the process ends meanwhile
  text.resize(static_cast<std::size_t>(file.gcount()));
  std::size_t at = text.rfind(')');
  for (int field = 2; field < 22 && at != std::string::npos; ++field) at = text.find(' ', at + 1);
  return at == std::string::npos ? 0 : std::strtoull(text.c_str() + at + 1, nullptr, 10);
}

// Above every number that the kernel gives to a process.
constexpr std::int32_t firstSandboxedPid = 1 << 30;

} // namespace

struct PipeWireObjects::ClientEntry : PipeWireServerObject<pw_client> {
  ClientEntry(PipeWireConnection& theConnection, const PipeWireConnection::Global& global)
      : PipeWireServerObject(theConnection, global, PW_VERSION_CLIENT), id(global.id),
        serial(numberIn(global.properties, PW_KEY_OBJECT_SERIAL)) {
    static const pw_client_events events = [] {
      pw_client_events made{};
      made.version = PW_VERSION_CLIENT_EVENTS;
      made.info = [](void* data, const pw_client_info* info) {
        static_cast<ClientEntry*>(data)->onInfo(*info);
      };
      return made;
    }();
    if (proxy) pw_client_add_listener(proxy.get(), hook.get(), &events, this);
  }

  void onInfo(const pw_client_info& info) {
    if ((info.change_mask & PW_CLIENT_CHANGE_MASK_PROPS) == 0) return;
    if (auto application = sandboxedApplication(info.props); !application.empty()) {
      client.process =
          Process{firstSandboxedPid + static_cast<std::int32_t>(id), serial, std::move(application)};
      return connection.changed();
    }
    const std::int32_t pid = pidIn(info.props);
    const bool wasOurs = client.ours;
    const auto* self = reinterpret_cast<pw_proxy*>(pw_core_get_client(connection.core()));
    client.ours = pid == ::getpid() || id == pw_proxy_get_bound_id(const_cast<pw_proxy*>(self)) ||
                  property(info.props, PW_KEY_APP_PROCESS_ID) == std::to_string(::getpid());
    const bool same = client.process && client.process->pid == pid;
    if (same && client.ours == wasOurs) return;
    if (pid > 0) client.process = Process{pid, startOf(pid), {}};
    connection.changed();
  }

  std::uint32_t id;
  std::uint64_t serial;
  Client client;
};

struct PipeWireObjects::NodeEntry : PipeWireServerObject<pw_node> {
  NodeEntry(PipeWireConnection& theConnection, const PipeWireConnection::Global& global, bool aSink)
      : PipeWireServerObject(theConnection, global, PW_VERSION_NODE), isSink(aSink) {
    sink.serial = numberIn(global.properties, PW_KEY_OBJECT_SERIAL);
    sink.name = property(global.properties, PW_KEY_NODE_NAME);
    static const pw_node_events events = [] {
      pw_node_events made{};
      made.version = PW_VERSION_NODE_EVENTS;
      made.info = [](void* data, const pw_node_info* info) { static_cast<NodeEntry*>(data)->onInfo(*info); };
      return made;
    }();
    if (proxy) pw_node_add_listener(proxy.get(), hook.get(), &events, this);
  }

  void onInfo(const pw_node_info& info) {
    const bool describes = (info.change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0;
    const bool running = info.state == PW_NODE_STATE_RUNNING;
    if (!describes && running == playback.running) return;
    playback.running = running;
    if (describes) describe(info.props);
    connection.changed();
  }

  void describe(const spa_dict* properties) {
    playback.known = sink.known = true;
    if (!isSink) {
      playback.client = idIn(properties, PW_KEY_CLIENT_ID);
      playback.reemits = !property(properties, PW_KEY_NODE_LINK_GROUP).empty();
      return;
    }
    device = idIn(properties, PW_KEY_DEVICE_ID);
    sink.properties = allIn(properties);
  }

  bool isSink;
  Playback playback;
  Sink sink;
  std::uint32_t device = PW_ID_ANY;
};

struct PipeWireObjects::DeviceEntry : PipeWireServerObject<pw_device> {
  DeviceEntry(PipeWireConnection& theConnection, const PipeWireConnection::Global& global)
      : PipeWireServerObject(theConnection, global, PW_VERSION_DEVICE) {
    static const pw_device_events events = [] {
      pw_device_events made{};
      made.version = PW_VERSION_DEVICE_EVENTS;
      made.info = [](void* data, const pw_device_info* info) {
        static_cast<DeviceEntry*>(data)->onInfo(*info);
      };
      return made;
    }();
    if (proxy) pw_device_add_listener(proxy.get(), hook.get(), &events, this);
  }

  void onInfo(const pw_device_info& info) {
    if ((info.change_mask & PW_DEVICE_CHANGE_MASK_PROPS) == 0) return;
    properties = allIn(info.props);
    connection.changed();
  }

  PropertyMap properties;
};

PipeWireObjects::PipeWireObjects(PipeWireConnection& connection) : connection_(connection) {}

PipeWireObjects::~PipeWireObjects() = default;

std::map<std::uint32_t, PipeWireObjects::Client> PipeWireObjects::clients() const {
  std::map<std::uint32_t, Client> clients;
  for (const auto& [id, entry] : clients_) clients.emplace(id, entry->client);
  return clients;
}

std::map<std::uint32_t, PipeWireObjects::Playback> PipeWireObjects::playbacks() const {
  std::map<std::uint32_t, Playback> playbacks;
  for (const auto& [id, entry] : nodes_) {
    if (!entry->isSink && entry->playback.known) playbacks.emplace(id, entry->playback);
  }
  return playbacks;
}

std::map<std::uint32_t, PipeWireObjects::Sink> PipeWireObjects::sinks() const {
  std::map<std::uint32_t, Sink> sinks;
  for (const auto& [id, entry] : nodes_) {
    if (!entry->isSink || !entry->sink.known) continue;
    Sink& sink = sinks.emplace(id, entry->sink).first->second;
    const auto device = devices_.find(entry->device);
    if (device != devices_.end())
      sink.properties.insert(device->second->properties.begin(), device->second->properties.end());
  }
  return sinks;
}

void PipeWireObjects::added(const PipeWireConnection::Global& global) {
  const std::string_view type = global.type;
  if (type == PW_TYPE_INTERFACE_Client) {
    clients_[global.id] = std::make_unique<ClientEntry>(connection_, global);
  } else if (type == PW_TYPE_INTERFACE_Device) {
    devices_[global.id] = std::make_unique<DeviceEntry>(connection_, global);
  } else if (type == PW_TYPE_INTERFACE_Node) {
    addNode(global);
  } else if (type == PW_TYPE_INTERFACE_Port) {
    addPort(global);
  }
}

void PipeWireObjects::addNode(const PipeWireConnection::Global& global) {
  const std::string_view mediaClass = property(global.properties, PW_KEY_MEDIA_CLASS);
  const bool sink = mediaClass == "Audio/Sink" || mediaClass == "Audio/Duplex";
  if (mediaClass.starts_with("Audio/Source")) {
    sources_[global.id] = std::make_unique<PipeWireSourceNode>(connection_, global);
  } else if (sink || mediaClass == "Stream/Output/Audio") {
    nodes_[global.id] = std::make_unique<NodeEntry>(connection_, global, sink);
  } else {
    return;
  }
  connection_.changed();
}

void PipeWireObjects::addPort(const PipeWireConnection::Global& global) {
  if (property(global.properties, PW_KEY_PORT_MONITOR) == "true") return;
  ports_[global.id] = {numberIn(global.properties, PW_KEY_OBJECT_SERIAL),
                       idIn(global.properties, PW_KEY_NODE_ID),
                       property(global.properties, PW_KEY_PORT_DIRECTION) == "in",
                       std::string(property(global.properties, PW_KEY_AUDIO_CHANNEL))};
  connection_.changed();
}

void PipeWireObjects::removed(std::uint32_t id) {
  const std::size_t erased =
      clients_.erase(id) + nodes_.erase(id) + devices_.erase(id) + sources_.erase(id) + ports_.erase(id);
  if (erased > 0) connection_.changed();
}

void PipeWireObjects::clear() {
  clients_.clear();
  nodes_.clear();
  devices_.clear();
  sources_.clear();
  ports_.clear();
}

} // namespace tolvera::adapters
