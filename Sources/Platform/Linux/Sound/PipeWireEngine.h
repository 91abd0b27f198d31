#pragma once

#include "Platform/Audio.h"

#include <memory>
#include <optional>

namespace tolvera::adapters {

struct PipeWireGraph;
class PipeWireCapture;

// The default input. The tap opens its stream while the engine runs. Main thread.
class PipeWireInputNode final : public platform::AudioInputNode {
 public:
  explicit PipeWireInputNode(std::shared_ptr<PipeWireGraph> graph);
  ~PipeWireInputNode() override;
  PipeWireInputNode(const PipeWireInputNode&) = delete;
  PipeWireInputNode& operator=(const PipeWireInputNode&) = delete;

  // Waits for up to 2 s for the sound server if the connection is new.
  [[nodiscard]] platform::AudioFormat outputFormat(int bus) const override;
  // Replaces the former tap. On a running engine it throws as `start` does.
  void installTap(int bus, std::uint32_t bufferSize, const platform::AudioFormat& format,
                  TapBlock block) override;
  void removeTap(int bus) override;

  void start(); // throws PlatformError
  void stop();

 private:
  struct Tap {
    std::uint32_t bufferSize;
    platform::AudioFormat format;
    TapBlock block;
  };

  void open();

  std::shared_ptr<PipeWireGraph> graph_;
  std::optional<Tap> tap_;
  std::unique_ptr<PipeWireCapture> capture_; // while the engine runs and there is a tap
  bool running_ = false;
};

class PipeWireEngine final : public platform::AudioEngine {
 public:
  explicit PipeWireEngine(std::shared_ptr<PipeWireGraph> graph);

  platform::AudioInputNode& inputNode() override { return inputNode_; }
  void start() override;
  void stop() override;

 private:
  PipeWireInputNode inputNode_;
};

} // namespace tolvera::adapters
