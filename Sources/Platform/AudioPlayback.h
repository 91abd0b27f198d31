#pragma once

#include "Platform/AudioFormat.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace tolvera::platform {

// Plays buffers back to back in the order in which they were scheduled. Its maker owns it; it is silent until
// it is attached to a running engine. One thread at a time, except for the volume. Nothing here throws.
class AudioPlayerNode {
 public:
  virtual ~AudioPlayerNode() = default; // the node is detached by then

  // From now on scheduled buffers are heard.
  virtual void play() = 0;
  // Is silent at once: drops the queue and the buffer in progress.
  virtual void stop() = 0;
  // A buffer for sound that is to be scheduled. Absent if there is no memory, or if with it more would wait
  // than the system queues, a minute or so: sound that comes faster than it is heard is lost.
  virtual std::optional<AudioPCMBuffer> makeBuffer(const AudioFormat& format, std::uint32_t frames) = 0;
  // Appends to the queue and returns at once. The buffer has the format of the node's connection.
  virtual void scheduleBuffer(AudioPCMBuffer buffer) = 0;

  // A factor on the samples, 1 when new. Any thread.
  [[nodiscard]] virtual float volume() const = 0;
  virtual void setVolume(float volume) = 0;
};

// Plays its nodes on the default output device, and on the new one when the default changes. If the device or
// the sound server goes away, it is silent until there is one again and reports nothing. One thread at a
// time. Destroying a running engine stops it.
class AudioOutputEngine {
 public:
  virtual ~AudioOutputEngine() = default;

  // Makes the node, which comes from the same system, a part of the engine. The node's owner detaches it
  // before destroying it.
  virtual void attach(AudioPlayerNode& node) = 0;
  // Mixes the buffers of an attached node, which have this format, into the output.
  virtual void connectToMainMixer(AudioPlayerNode& node, const AudioFormat& format) = 0;
  // Stops the node's sound and takes it out. Harmless for a node that is not attached.
  virtual void detach(AudioPlayerNode& node) = 0;

  // Throws PlatformError if the sound server cannot be reached.
  virtual void start() = 0;
  virtual void stop() = 0;
};

// Makes output engines and player nodes. Main thread.
class AudioPlayback {
 public:
  virtual ~AudioPlayback() = default;

  virtual std::unique_ptr<AudioOutputEngine> makeOutputEngine() = 0;
  virtual std::unique_ptr<AudioPlayerNode> makePlayerNode() = 0;
};

} // namespace tolvera::platform
