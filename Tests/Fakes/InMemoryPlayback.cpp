#include "Fakes/InMemoryPlayback.h"

#include <utility>

namespace tolvera::test {

using platform::AudioFormat;
using platform::AudioPCMBuffer;
using platform::AudioPlayerNode;

class InMemoryPlayback::Engine final : public platform::AudioOutputEngine {
 public:
  explicit Engine(InMemoryPlayback& system) : system_(system) { ++system_.engines_; }
  ~Engine() override {
    system_.engineRuns_ = false;
    --system_.engines_;
  }
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  void attach(AudioPlayerNode& /*node*/) override { system_.calls.emplace_back("attach"); }
  void connectToMainMixer(AudioPlayerNode& /*node*/, const AudioFormat& format) override {
    system_.calls.push_back("connect " + std::to_string(static_cast<long>(format.sampleRate)) + '/' +
                            std::to_string(format.channelCount));
    system_.nodeConnected_ = true;
  }
  void detach(AudioPlayerNode& /*node*/) override {
    system_.calls.emplace_back("detach");
    system_.nodeConnected_ = false;
    system_.nodePlays_ = false;
  }
  void start() override {
    system_.calls.emplace_back("start");
    if (system_.startFailure) throw platform::PlatformError(*system_.startFailure);
    system_.engineRuns_ = true;
  }
  void stop() override {
    system_.calls.emplace_back("stopEngine");
    system_.engineRuns_ = false;
  }

 private:
  InMemoryPlayback& system_;
};

class InMemoryPlayback::Node final : public AudioPlayerNode {
 public:
  explicit Node(InMemoryPlayback& system) : system_(system) { ++system_.nodes_; }
  ~Node() override { --system_.nodes_; }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  void play() override {
    system_.calls.emplace_back("play");
    system_.nodePlays_ = true;
  }
  void stop() override {
    system_.calls.emplace_back("stopNode");
    system_.nodePlays_ = false;
    system_.queued.clear();
  }
  void scheduleBuffer(AudioPCMBuffer buffer) override {
    system_.calls.push_back("schedule " + std::to_string(buffer.frameLength()));
    const float* samples = std::as_const(buffer).channel(0);
    if (system_.playing()) {
      system_.queued.insert(system_.queued.end(), samples, samples + buffer.frameLength());
    }
  }
  [[nodiscard]] float volume() const override { return system_.volume; }
  void setVolume(float volume) override { system_.volume = volume; }

 private:
  InMemoryPlayback& system_;
};

std::unique_ptr<platform::AudioOutputEngine> InMemoryPlayback::makeOutputEngine() {
  return std::make_unique<Engine>(*this);
}

std::unique_ptr<AudioPlayerNode> InMemoryPlayback::makePlayerNode() { return std::make_unique<Node>(*this); }

} // namespace tolvera::test
