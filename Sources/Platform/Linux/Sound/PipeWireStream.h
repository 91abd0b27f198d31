#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireGraph.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace tolvera::adapters {

// What captures and playbacks share: a stream of float samples from or to the sound server, and its events.
// The subclass listens to the connection and decides when the stream is open. It closes the stream before it
// destroys anything that `onProcess` uses. Loop lock.
class PipeWireStream : protected PipeWireConnection::Listener {
 protected:
  PipeWireStream(std::shared_ptr<PipeWireGraph> graph, const platform::AudioFormat& format);

  // Takes over the properties. `positions` (SPA_AUDIO_CHANNEL_*) places the channels; with another number of
  // them the usual layout is used. The result is a negative errno if the server refuses the stream.
  int open(pw_direction direction, const char* name, pw_properties* properties,
           const std::vector<std::uint32_t>& positions = {});
  void close();
  [[nodiscard]] pw_stream* stream() const { return stream_.get(); } // null while closed

  virtual void onState(pw_stream_state state, const char* error) = 0; // not after `close`
  virtual void onProcess() noexcept = 0;                              // real-time thread

  const std::shared_ptr<PipeWireGraph> graph_;
  const platform::AudioFormat format_;

 private:
  struct Events;

  Stream stream_;
  Hook hook_;
  bool open_ = false; // events of the stream are heeded
};

} // namespace tolvera::adapters
