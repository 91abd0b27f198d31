#include "Platform/Linux/Sound/Graph/PipeWireGraph.h"

#include <string>

namespace tolvera::adapters {

PipeWireGraph::PipeWireGraph(SoundFailures failures) : failures(std::move(failures)) {
  connection.addListener(*this);
}

void PipeWireGraph::connect(std::chrono::milliseconds patience) {
  const bool wasThere = connection.wasReady();
  if (!connection.open(patience)) throw wasThere ? failures.serverGone() : failures.noServer();
}

PipeWireGraph::~PipeWireGraph() {
  const LoopLock lock(connection.loop());
  connection.removeListener(*this);
  disconnected();
}

std::optional<PipeWireSource> PipeWireGraph::defaultSource(std::uint64_t current) const {
  const std::string name = metadata.defaultNode("default.audio.source");
  const PipeWireSource* best = nullptr;
  for (const auto& [id, node] : objects.sources()) {
    const PipeWireSource& source = node->source();
    if (source.name == name || (name.empty() && source.serial == current)) return source;
    if (best == nullptr || source.priority > best->priority) best = &source;
  }
  return best != nullptr ? std::optional(*best) : std::nullopt;
}

void PipeWireGraph::added(const PipeWireConnection::Global& global) {
  metadata.added(global);
  objects.added(global);
}

void PipeWireGraph::removed(std::uint32_t id) {
  metadata.removed(id);
  objects.removed(id);
}

void PipeWireGraph::settled() {
  processes.update();
  outputs.update();
}

void PipeWireGraph::disconnected() {
  outputs.clear();
  processes.clear();
  objects.clear();
  metadata.clear();
}

} // namespace tolvera::adapters
