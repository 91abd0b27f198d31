#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireGraph.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace tolvera::adapters {

// What the captures and the playbacks of the program share: a stream of plain float samples from or to the
// sound server, and the news of it. The subclass listens to the connection and decides when there is a
// stream; it closes the stream before anything that `onProcess` uses goes. Loop lock.
class PipeWireStream : protected PipeWireConnection::Listener {
 protected:
  PipeWireStream(std::shared_ptr<PipeWireGraph> graph, const platform::AudioFormat& format);

  // Takes the properties. A channel has its place in `positions` (SPA_AUDIO_CHANNEL_*), or the usual one if
  // these are not as many. What it gives is negative, an errno, if the server takes no stream.
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
  bool open_ = false; // what the stream says counts
};

} // namespace tolvera::adapters
