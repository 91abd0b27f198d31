#pragma once

#include "Platform/Linux/Sound/PipeWireSoundQueue.h"
#include "Platform/Linux/Sound/PipeWireStream.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace tolvera::adapters {

// The sound of a player node. The node writes it, the stream that it is connected to reads it.
struct PipeWireVoice {
  PipeWireSoundQueue queue;
  std::atomic<bool> playing{false};
  std::atomic<float> volume{1};
};

// A stream to the default output for as long as it lives. The session manager moves it when the default
// changes; after a restart of the sound server it comes back by itself. It runs only while there is sound to
// play, and for two seconds after, so that the output can sleep. Owned by an output engine; one thread at a
// time.
class PipeWireOutputStream final : private PipeWireStream {
 public:
  // Throws PlatformError if there is no server, or if it refuses the stream.
  PipeWireOutputStream(std::shared_ptr<PipeWireGraph> graph, const platform::AudioFormat& format,
                       std::shared_ptr<PipeWireVoice> voice);
  // When it has returned, the stream is silent and the voice is no longer read.
  ~PipeWireOutputStream() override;
  PipeWireOutputStream(const PipeWireOutputStream&) = delete;
  PipeWireOutputStream& operator=(const PipeWireOutputStream&) = delete;

  void wake(); // there is something to play

 private:
  void settled() override;
  void disconnected() override;
  bool begin();
  void end();
  void awaitChange();
  void onState(pw_stream_state state, const char* error) override;
  void onProcess() noexcept override;
  static void onQuiet(void* self, std::uint64_t count);

  const std::shared_ptr<PipeWireVoice> voice_;
  spa_source* quiet_ = nullptr; // signalled after two seconds without sound
  bool active_ = false;
  bool flowing_ = false; // the server has followed `active_`
  bool failed_ = false;
  std::size_t silentFrames_ = 0; // since the last sound; real-time thread
};

} // namespace tolvera::adapters
