#pragma once

#include "Async/Clock.h"
#include "Platform/AudioPlayback.h"

#include <memory>
#include <mutex>
#include <vector>

namespace tolvera {

// Plays the dub of one run and estimates when it will have ended. Owned by the application model. `start`,
// `play` and `stop` are called on the main thread; `isSpeaking` and the volume on any thread.
class DubPlayer {
 public:
  static constexpr double sampleRate = 24'000.0; // Hz, of all dub audio

  // Plays nothing yet. The references outlive the player.
  DubPlayer(platform::AudioPlayback& playback, const Clock& clock);
  ~DubPlayer();
  DubPlayer(const DubPlayer&) = delete;
  DubPlayer& operator=(const DubPlayer&) = delete;

  // Throws PlatformError if there is no output. Does nothing if the player runs already.
  void start();
  // Queues the samples behind those that are still to be played. Drops them if the player does not run.
  void play(const std::vector<float>& samples);
  // Stops all sound at once and drops what is queued.
  void stop();

  // True while the queued pieces are estimated to sound: their lengths and a margin for each.
  [[nodiscard]] bool isSpeaking() const;

  [[nodiscard]] float volume() const { return node_->volume(); }
  void setVolume(float volume) { node_->setVolume(volume); }

 private:
  const Clock& clock_;
  // The engine is destroyed first, since a node may only be destroyed when no engine has it attached.
  const std::unique_ptr<platform::AudioPlayerNode> node_;
  const std::unique_ptr<platform::AudioOutputEngine> engine_;
  const platform::AudioFormat format_{sampleRate, 1};
  mutable std::mutex lock_; // guards the two fields below, and the calls on engine and node
  bool running_ = false;
  WallTime speakingUntil_ = distantPast;
};

} // namespace tolvera
