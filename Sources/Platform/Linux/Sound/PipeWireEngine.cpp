#include "Platform/Linux/Sound/PipeWireEngine.h"

#include "Platform/Linux/Sound/Graph/PipeWireGraph.h"
#include "Platform/Linux/Sound/PipeWireCapture.h"

namespace tolvera::adapters {

using platform::AudioFormat;

namespace {

constexpr std::chrono::seconds snapshotPatience{2};
// Stands for an input that is not there, so that `start` is reached and says what is missing.
constexpr AudioFormat assumedFormat{48000, 1};

} // namespace

PipeWireInputNode::PipeWireInputNode(std::shared_ptr<PipeWireGraph> graph) : graph_(std::move(graph)) {}

PipeWireInputNode::~PipeWireInputNode() = default;

AudioFormat PipeWireInputNode::outputFormat(int bus) const {
  PipeWireConnection& connection = graph_->connection;
  if (bus != 0) return {};
  if (!connection.open(snapshotPatience)) return assumedFormat;
  const LoopLock lock(connection.loop());
  const auto source = graph_->defaultSource();
  return source ? source->format : assumedFormat;
}

void PipeWireInputNode::installTap(int bus, std::uint32_t bufferSize, const AudioFormat& format,
                                   TapBlock block) {
  if (bus != 0) return;
  capture_.reset();
  tap_.emplace(Tap{bufferSize, format, std::move(block)});
  if (running_) open();
}

void PipeWireInputNode::removeTap(int bus) {
  if (bus != 0) return;
  capture_.reset();
  tap_.reset();
}

void PipeWireInputNode::start() {
  if (running_) return;
  if (tap_) open();
  running_ = true;
}

void PipeWireInputNode::stop() {
  running_ = false;
  capture_.reset();
}

void PipeWireInputNode::open() {
  capture_ = std::make_unique<PipeWireCapture>(graph_, tap_->format, tap_->bufferSize, tap_->block);
}

PipeWireEngine::PipeWireEngine(std::shared_ptr<PipeWireGraph> graph) : inputNode_(std::move(graph)) {}

void PipeWireEngine::start() { inputNode_.start(); }

void PipeWireEngine::stop() { inputNode_.stop(); }

} // namespace tolvera::adapters
