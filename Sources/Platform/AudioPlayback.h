#pragma once

#include "Platform/AudioFormat.h"

#include <memory>

namespace tolvera::platform {

// Plays buffers back to back in the order in which they were scheduled. Owned by whoever had it made, and
// silent until it is attached to an engine that runs. One thread at a time, but for the volume. Nothing
// here throws.
class AudioPlayerNode {
 public:
  virtual ~AudioPlayerNode() = default; // of a node that no engine has attached

  // From now on what is scheduled sounds.
  virtual void play() = 0;
  // Silence at once: drops what is queued, the buffer in progress included.
  virtual void stop() = 0;
  // Appends to the queue and returns at once. The buffer has the format that the node is connected with.
  virtual void scheduleBuffer(AudioPCMBuffer buffer) = 0;

  // A factor on the samples, 1 when new. Any thread.
  [[nodiscard]] virtual float volume() const = 0;
  virtual void setVolume(float volume) = 0;
};

// Plays its nodes on the default output device, and on the next one when the default changes. A device or
// a sound server that goes away interrupts it without a word; it goes on when there is one again. One
// thread at a time. Destroying a running engine stops it.
class AudioOutputEngine {
 public:
  virtual ~AudioOutputEngine() = default;

  // Makes the node, which comes from the same system, a part of the engine. It stays its owner's, who
  // detaches it before destroying it.
  virtual void attach(AudioPlayerNode& node) = 0;
  // Has an attached node's buffers, which have this format, mixed into the output.
  virtual void connectToMainMixer(AudioPlayerNode& node, const AudioFormat& format) = 0;
  // Stops the node's sound and takes it out. Harmless for a node that is not attached.
  virtual void detach(AudioPlayerNode& node) = 0;

  // Throws PlatformError if there is no way to an output.
  virtual void start() = 0;
  virtual void stop() = 0;
};

// The sound system's playing half. Main thread.
class AudioPlayback {
 public:
  virtual ~AudioPlayback() = default;

  virtual std::unique_ptr<AudioOutputEngine> makeOutputEngine() = 0;
  virtual std::unique_ptr<AudioPlayerNode> makePlayerNode() = 0;
};

} // namespace tolvera::platform
