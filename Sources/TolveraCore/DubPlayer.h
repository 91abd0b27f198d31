#pragma once

#include "Async/Clock.h"
#include "Platform/AudioPlayback.h"

#include <memory>
#include <mutex>
#include <vector>

namespace tolvera {

// Plays the dub of one run and estimates when it will have ended. Owned by the application model. `start`,
// `play` and `stop` on the main thread; `isSpeaking` and the volume on any.
class DubPlayer {
 public:
  static constexpr double sampleRate = 24'000.0; // Hz, of all dub audio

  // Plays nothing yet. The references outlive the player.
  DubPlayer(platform::AudioPlayback& playback, const Clock& clock);
  ~DubPlayer();
  DubPlayer(const DubPlayer&) = delete;
  DubPlayer& operator=(const DubPlayer&) = delete;

  // Throws PlatformError if there is no output. Does nothing on a player that runs.
  void start();
  // Queues the samples behind what is still to be played. Drops them on a player that does not run.
  void play(const std::vector<float>& samples);
  // Silence at once.
  void stop();

  // Whether what was queued is taken to sound still: its length, and a margin for each piece.
  [[nodiscard]] bool isSpeaking() const;

  [[nodiscard]] float volume() const { return node_->volume(); }
  void setVolume(float volume) { node_->setVolume(volume); }

 private:
  const Clock& clock_;
  // The engine goes first: a node may only be destroyed outside one.
  const std::unique_ptr<platform::AudioPlayerNode> node_;
  const std::unique_ptr<platform::AudioOutputEngine> engine_;
  const platform::AudioFormat format_{sampleRate, 1};
  mutable std::mutex lock_; // of the two below, and of the calls on engine and node
  bool running_ = false;
  WallTime speakingUntil_ = distantPast;
};

} // namespace tolvera
