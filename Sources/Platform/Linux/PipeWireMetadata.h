#pragma once

#include "Platform/Linux/PipeWireConnection.h"

#include <pipewire/extensions/metadata.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tolvera::adapters {

// Which nodes the session manager names as the defaults. Under the loop lock.
//
// While some client begins to read the defaults, the server keeps changes of them from those who read them
// already. So a second after anything in the graph came, went or changed, they are read again through a new
// binding, which takes the place of the old one. One reading is enough: such a client has just come, or a
// default changes because a device did, and either sets the next one off.
class PipeWireMetadata final : public PipeWireConnection::Listener {
 public:
  explicit PipeWireMetadata(PipeWireConnection& connection);
  ~PipeWireMetadata() override;
  PipeWireMetadata(const PipeWireMetadata&) = delete;
  PipeWireMetadata& operator=(const PipeWireMetadata&) = delete;

  // The node's name behind a key such as "default.audio.source"; empty if there is none, as happens for a
  // moment while a default changes.
  [[nodiscard]] std::string defaultNode(const std::string& key) const;

 private:
  struct Binding;

  void added(const PipeWireConnection::Global& global) override;
  void removed(std::uint32_t id) override;
  void settled() override;
  void disconnected() override;
  void somethingHappened();
  [[nodiscard]] std::unique_ptr<Binding> bind();
  void onChange(const Binding& binding);

  PipeWireConnection& connection_;
  std::uint32_t id_ = PW_ID_ANY;
  std::unique_ptr<Binding> current_;
  std::unique_ptr<Binding> fresh_; // while it is being filled: the answer of the next `settled`
  std::optional<std::chrono::steady_clock::time_point> checkDue_;
  bool happenedSince_ = false; // and something has happened since that was set
};

} // namespace tolvera::adapters
