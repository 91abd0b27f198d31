#pragma once

#include "Platform/AudioFormat.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace tolvera::platform {

// Converts between formats: the rate, and the reduction of several channels to one (their mean). Keeps
// its filter state from one call to the next, so consecutive blocks join without a seam. One thread at a
// time.
class AudioConverter {
 public:
  enum class InputStatus { haveData = 0, noDataNow = 1 };

  // The answer of an input block. `buffer` is null unless `status` is `haveData`; it is read before `convert`
  // returns.
  struct Input {
    const AudioPCMBuffer* buffer = nullptr;
    InputStatus status = InputStatus::noDataNow;
  };

  virtual ~AudioConverter() = default;

  // Pulls input at least once, until there is none for now or `output` is full. Fills `output` from its start
  // and sets its `frameLength`, which may be 0. Samples without room come first in the next call. False on an
  // error; `output` then holds nothing usable.
  virtual bool convert(AudioPCMBuffer& output, const std::function<Input()>& input) = 0;
};

// The default audio input of an engine.
class AudioInputNode {
 public:
  // Runs on a thread of the audio adapter, one call at a time. The buffer is valid during the call.
  using TapBlock = std::function<void(const AudioPCMBuffer&)>;

  virtual ~AudioInputNode() = default;

  // The format that the hardware delivers. Its `sampleRate` is 0 if there is no usable input, unless the
  // engine's `start` says so in words.
  [[nodiscard]] virtual AudioFormat outputFormat(int bus) const = 0;
  // Delivers the input to `block` in `format` while the engine runs, about `bufferSize` frames at a time. A
  // change of device is not reported: the block is not called until the next device delivers.
  virtual void installTap(int bus, std::uint32_t bufferSize, const AudioFormat& format, TapBlock block) = 0;
  // No block runs after it has returned, and the block is destroyed. Harmless without a tap.
  virtual void removeTap(int bus) = 0;
};

// A graph of audio nodes on the default devices. Main thread. Destroying a running engine stops it.
class AudioEngine {
 public:
  virtual ~AudioEngine() = default;

  virtual AudioInputNode& inputNode() = 0; // lives as long as the engine; asking for it opens nothing
  // Throws PlatformError, worded for people, if the devices cannot be opened.
  virtual void start() = 0;
  virtual void stop() = 0;
};

// Makes audio engines and converters. Main thread.
class AudioSystem {
 public:
  virtual ~AudioSystem() = default;

  virtual std::unique_ptr<AudioEngine> makeEngine() = 0;
  // Null if there is no such conversion.
  virtual std::unique_ptr<AudioConverter> makeConverter(const AudioFormat& from, const AudioFormat& to) = 0;
};

} // namespace tolvera::platform
