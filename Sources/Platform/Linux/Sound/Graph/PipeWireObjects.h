#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tolvera::adapters {

// The objects of the sound server that playing sound is made of, as the server describes them now. Ids are
// used again at once by the server; serials are not while it runs. Under the loop lock.
class PipeWireObjects final : public PipeWireConnection::Listener {
 public:
  // A process of the system: its number may be used again after its end, its start tells which it is.
  struct Process {
    std::int32_t pid = 0;
    std::uint64_t started = 0; // clock ticks after the system's start; 0 if unknown
    auto operator<=>(const Process&) const = default;
  };

  // A connection of a program, its own or one through the PulseAudio server.
  struct Client {
    std::optional<Process> process;
    bool ours = false;
  };

  // A stream that plays.
  struct Playback {
    std::uint32_t client = PW_ID_ANY;
    bool known = false;   // described by the server
    bool reemits = false; // plays on what other streams play, as effects do
    bool running = false;
  };

  // An output: what describes it, of its own and of its device.
  struct Sink {
    std::uint64_t serial = 0;
    std::string name;
    std::map<std::string, std::string, std::less<>> properties;
    bool known = false;
  };

  struct Port {
    std::uint64_t serial = 0;
    std::uint32_t node = PW_ID_ANY;
    bool input = false;
    std::string channel; // "FL", "MONO", ...
  };

  explicit PipeWireObjects(PipeWireConnection& connection);
  ~PipeWireObjects() override;
  PipeWireObjects(const PipeWireObjects&) = delete;
  PipeWireObjects& operator=(const PipeWireObjects&) = delete;

  // Each by its id.
  [[nodiscard]] std::map<std::uint32_t, Client> clients() const;
  [[nodiscard]] std::map<std::uint32_t, Playback> playbacks() const;
  [[nodiscard]] std::map<std::uint32_t, Sink> sinks() const;
  [[nodiscard]] const std::map<std::uint32_t, Port>& ports() const { return ports_; }

 private:
  template<typename Interface>
  struct Bound;
  struct ClientEntry;
  struct NodeEntry;
  struct DeviceEntry;

  void added(const PipeWireConnection::Global& global) override;
  void removed(std::uint32_t id) override;
  void disconnected() override;
  void addNode(const PipeWireConnection::Global& global);
  void addPort(const PipeWireConnection::Global& global);

  PipeWireConnection& connection_;
  std::map<std::uint32_t, std::unique_ptr<ClientEntry>> clients_;
  std::map<std::uint32_t, std::unique_ptr<NodeEntry>> nodes_; // playbacks and sinks
  std::map<std::uint32_t, std::unique_ptr<DeviceEntry>> devices_;
  std::map<std::uint32_t, Port> ports_; // without monitors
};

} // namespace tolvera::adapters
