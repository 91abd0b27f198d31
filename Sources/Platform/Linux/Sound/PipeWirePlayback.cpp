#include "Platform/Linux/Sound/PipeWirePlayback.h"

#include "Platform/Linux/Sound/PipeWireOutputStream.h"

#include <map>
#include <optional>
#include <utility>

namespace tolvera::adapters {

using platform::AudioFormat;
using platform::AudioPCMBuffer;

namespace {

// Speech that is heard a minute late is of no use, and a service that sends faster must not fill the memory.
constexpr double longestQueue = 60; // s

class PlayerNode final : public platform::AudioPlayerNode {
 public:
  void play() override {
    voice->playing.store(true, std::memory_order_release);
    if (stream != nullptr && voice->queue.hasSound()) stream->wake();
  }
  void stop() override {
    voice->playing.store(false, std::memory_order_release);
    voice->queue.drop();
  }
  std::optional<AudioPCMBuffer> makeBuffer(const AudioFormat& format, std::uint32_t frames) override {
    const double waiting = static_cast<double>(voice->queue.waiting()) + frames;
    if (waiting > format.sampleRate * longestQueue) return std::nullopt;
    return AudioPCMBuffer::make(format, frames);
  }
  void scheduleBuffer(AudioPCMBuffer buffer) override {
    voice->queue.push(std::move(buffer));
    if (stream != nullptr && voice->playing.load(std::memory_order_relaxed)) stream->wake();
  }
  [[nodiscard]] float volume() const override { return voice->volume.load(std::memory_order_relaxed); }
  void setVolume(float value) override { voice->volume.store(value, std::memory_order_relaxed); }

  const std::shared_ptr<PipeWireVoice> voice = std::make_shared<PipeWireVoice>();
  PipeWireOutputStream* stream = nullptr; // the running engine's; null otherwise
};

class OutputEngine final : public platform::AudioOutputEngine {
 public:
  explicit OutputEngine(std::shared_ptr<PipeWireGraph> graph) : graph_(std::move(graph)) {}
  ~OutputEngine() override { stop(); }
  OutputEngine(const OutputEngine&) = delete;
  OutputEngine& operator=(const OutputEngine&) = delete;

  void attach(platform::AudioPlayerNode& node) override { inputs_.try_emplace(&pipeWireNode(node)); }

  void connectToMainMixer(platform::AudioPlayerNode& node, const AudioFormat& format) override {
    const auto input = inputs_.find(&pipeWireNode(node));
    if (input == inputs_.end()) return;
    input->second.format = format;
    close(*input);
    if (!running_) return;
    try {
      open(*input);
    } catch (const std::exception&) { // only `start` reports a failure
    }
  }

  void detach(platform::AudioPlayerNode& node) override {
    const auto input = inputs_.find(&pipeWireNode(node));
    if (input == inputs_.end()) return;
    close(*input);
    inputs_.erase(input);
    node.stop();
  }

  void start() override {
    if (running_) return;
    try {
      for (auto& input : inputs_) open(input);
    } catch (...) {
      stop();
      throw;
    }
    running_ = true;
  }

  void stop() override {
    running_ = false;
    for (auto& input : inputs_) close(input);
  }

 private:
  struct Connection {
    std::optional<AudioFormat> format;
    std::unique_ptr<PipeWireOutputStream> stream;
  };
  using Inputs = std::map<PlayerNode*, Connection>;

  static PlayerNode& pipeWireNode(platform::AudioPlayerNode& node) { return static_cast<PlayerNode&>(node); }

  void open(Inputs::value_type& input) {
    auto& [node, connection] = input;
    if (!connection.format) return;
    connection.stream = std::make_unique<PipeWireOutputStream>(graph_, *connection.format, node->voice);
    node->stream = connection.stream.get();
  }
  static void close(Inputs::value_type& input) {
    input.first->stream = nullptr;
    input.second.stream.reset();
  }

  std::shared_ptr<PipeWireGraph> graph_;
  Inputs inputs_;
  bool running_ = false;
};

} // namespace

PipeWirePlayback::PipeWirePlayback(std::shared_ptr<PipeWireGraph> graph) : graph_(std::move(graph)) {}

PipeWirePlayback::~PipeWirePlayback() = default;

std::unique_ptr<platform::AudioOutputEngine> PipeWirePlayback::makeOutputEngine() {
  return std::make_unique<OutputEngine>(graph_);
}

std::unique_ptr<platform::AudioPlayerNode> PipeWirePlayback::makePlayerNode() {
  return std::make_unique<PlayerNode>();
}

} // namespace tolvera::adapters
