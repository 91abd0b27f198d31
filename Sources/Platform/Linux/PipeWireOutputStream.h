#pragma once

#include "Platform/Linux/PipeWireGraph.h"
#include "Platform/Linux/PipeWireSoundQueue.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace tolvera::adapters {

// What a player node plays. Written by the node, read by the stream that it is connected to.
struct PipeWireVoice {
  PipeWireSoundQueue queue;
  std::atomic<bool> playing{false};
  std::atomic<float> volume{1};
};

// A stream to the default output for as long as it lives. The session manager moves it when the default
// changes; over a restart of the sound server it comes back by itself. It runs only while there is something
// to play, and for a moment after, so that the output can sleep. Owned by an output engine; one thread at a
// time.
class PipeWireOutputStream final : private PipeWireConnection::Listener {
 public:
  // Throws PlatformError if there is no server, or if it does not take a stream.
  PipeWireOutputStream(std::shared_ptr<PipeWireGraph> graph, const platform::AudioFormat& format,
                       std::shared_ptr<PipeWireVoice> voice);
  // When it has returned, the stream is silent and the voice is not read any more.
  ~PipeWireOutputStream() override;
  PipeWireOutputStream(const PipeWireOutputStream&) = delete;
  PipeWireOutputStream& operator=(const PipeWireOutputStream&) = delete;

  void wake(); // there is something to play

 private:
  struct Events;

  // Loop lock.
  void settled() override;
  void disconnected() override;
  bool open();
  void close();
  void awaitChange();
  void onState(pw_stream_state state);
  void onQuiet();

  void onProcess() noexcept; // real-time thread

  std::shared_ptr<PipeWireGraph> graph_;
  const platform::AudioFormat format_;
  const std::shared_ptr<PipeWireVoice> voice_;
  spa_source* quiet_ = nullptr; // signalled when there has been nothing to play for a while
  Stream stream_;
  Hook hook_;
  bool open_ = false; // what the stream says counts
  bool active_ = false;
  bool flowing_ = false; // the server has followed `active_`
  bool failed_ = false;
  std::size_t silentFrames_ = 0; // real-time thread: since there last was something to play
};

} // namespace tolvera::adapters
