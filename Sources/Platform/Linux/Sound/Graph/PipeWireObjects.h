#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"
#include "Platform/Linux/Sound/Graph/PipeWireProperties.h"
#include "Platform/Linux/Sound/Graph/PipeWireSource.h"

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tolvera::adapters {

// The one mirror of the server's registry: clients, nodes, devices and ports as the server describes them
// now. The server uses an id again at once, a serial never while it runs. Under the loop lock.
class PipeWireObjects {
 public:
  // A process of the system. Its number may be used again after its end; its start tells it apart. Of one in
  // a sandbox that reaches the server through the PulseAudio socket the true number is not known: its
  // connection stands for it, with a number that no process has.
  struct Process {
    std::int32_t pid = 0;
    std::uint64_t started =
        0;                   // clock ticks after the system's start, or the connection's serial; 0 if unknown
    std::string application; // of one in a sandbox: the identifier of its application
    auto operator<=>(const Process&) const = default;
  };

  // A program's connection: its own, or one through the PulseAudio server.
  struct Client {
    std::optional<Process> process;
    bool ours = false;
  };

  // A stream that plays.
  struct Playback {
    std::uint32_t client = PW_ID_ANY;
    bool known = false;   // the server has described it
    bool reemits = false; // plays the sound of other streams again, as effects do
    bool running = false;
  };

  // An output, with the properties of the node and of its device.
  struct Sink {
    std::uint64_t serial = 0;
    std::string name;
    PropertyMap properties;
    bool known = false;
  };

  struct Port {
    std::uint64_t serial = 0;
    std::uint32_t node = PW_ID_ANY;
    bool input = false;
    std::string channel; // "FL", "MONO", ...
  };

  using Sources = std::map<std::uint32_t, std::unique_ptr<PipeWireSourceNode>>;

  explicit PipeWireObjects(PipeWireConnection& connection);
  ~PipeWireObjects();
  PipeWireObjects(const PipeWireObjects&) = delete;
  PipeWireObjects& operator=(const PipeWireObjects&) = delete;

  // What the registry says.
  void added(const PipeWireConnection::Global& global);
  void removed(std::uint32_t id);
  void clear();

  // Each by its id.
  [[nodiscard]] std::map<std::uint32_t, Client> clients() const;
  [[nodiscard]] std::map<std::uint32_t, Playback> playbacks() const;
  [[nodiscard]] std::map<std::uint32_t, Sink> sinks() const;
  [[nodiscard]] const Sources& sources() const { return sources_; }
  [[nodiscard]] const std::map<std::uint32_t, Port>& ports() const { return ports_; }

 private:
  struct ClientEntry;
  struct NodeEntry;
  struct DeviceEntry;

  void addNode(const PipeWireConnection::Global& global);
  void addPort(const PipeWireConnection::Global& global);

  PipeWireConnection& connection_;
  std::map<std::uint32_t, std::unique_ptr<ClientEntry>> clients_;
  std::map<std::uint32_t, std::unique_ptr<NodeEntry>> nodes_; // playbacks and sinks
  std::map<std::uint32_t, std::unique_ptr<DeviceEntry>> devices_;
  Sources sources_;                     // without the monitors of outputs
  std::map<std::uint32_t, Port> ports_; // without monitors
};

} // namespace tolvera::adapters
