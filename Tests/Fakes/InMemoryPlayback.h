#pragma once

#include "Platform/AudioPlayback.h"
#include "Platform/PlatformError.h"

#include <atomic>
#include <optional>
#include <utility>
#include <vector>

namespace tolvera::test {

// An output without sound, for one engine with one node at a time; it outlives them. One thread, but for the
// volume.
class InMemoryPlayback final : public platform::AudioPlayback {
 public:
  std::optional<platform::PlatformError> startFailure; // read on each start
  std::vector<float> queued;          // what was scheduled where it would be heard, less what a stop dropped
  std::size_t queueLimit = 1'000'000; // samples
  double sampleRate = 0;              // of the node's connection, 0 without one
  std::atomic<float> volume{1};       // of the node

  // An engine runs with a node that plays.
  [[nodiscard]] bool playing() const { return engineRuns_ && nodePlays_ && sampleRate > 0; }

  std::unique_ptr<platform::AudioOutputEngine> makeOutputEngine() override {
    return std::make_unique<Engine>(*this);
  }
  std::unique_ptr<platform::AudioPlayerNode> makePlayerNode() override {
    return std::make_unique<Node>(*this);
  }

 private:
  struct Engine final : platform::AudioOutputEngine {
    explicit Engine(InMemoryPlayback& playback) : system(playback) {}
    ~Engine() override { system.engineRuns_ = false; }
    void attach(platform::AudioPlayerNode&) override {}
    void connectToMainMixer(platform::AudioPlayerNode&, const platform::AudioFormat& format) override {
      system.sampleRate = format.sampleRate;
    }
    void detach(platform::AudioPlayerNode&) override { system.sampleRate = 0; }
    void start() override {
      if (system.startFailure) throw platform::PlatformError(*system.startFailure);
      system.engineRuns_ = true;
    }
    void stop() override { system.engineRuns_ = false; }

    InMemoryPlayback& system;
  };
  struct Node final : platform::AudioPlayerNode {
    explicit Node(InMemoryPlayback& playback) : system(playback) {}
    void play() override { system.nodePlays_ = true; }
    void stop() override {
      system.nodePlays_ = false;
      system.queued.clear();
    }
    std::optional<platform::AudioPCMBuffer> makeBuffer(const platform::AudioFormat& format,
                                                       std::uint32_t frames) override {
      if (system.queued.size() + frames > system.queueLimit) return std::nullopt;
      return platform::AudioPCMBuffer::make(format, frames);
    }
    void scheduleBuffer(platform::AudioPCMBuffer buffer) override {
      const float* samples = std::as_const(buffer).channel(0);
      if (system.playing())
        system.queued.insert(system.queued.end(), samples, samples + buffer.frameLength());
    }
    [[nodiscard]] float volume() const override { return system.volume; }
    void setVolume(float volume) override { system.volume = volume; }

    InMemoryPlayback& system;
  };

  bool engineRuns_ = false;
  bool nodePlays_ = false;
};

} // namespace tolvera::test
