#pragma once

#include "Platform/Audio.h"
#include "Platform/AudioHardware.h"
#include "Platform/Linux/Sound/Graph/PipeWireGraph.h"
#include "Platform/Linux/Sound/PipeWireWorker.h"

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tolvera::adapters {

// Listens to what other programs play for as long as it lives: one node that the session manager lets
// alone, linked to the streams that it listens to beside their way to the output. It follows them as they
// come and go, over a change of output and a restart of the sound server. Owned by the audio hardware;
// main thread.
class PipeWireTap final : private PipeWireConnection::Listener {
 public:
  // Which processes: the listed ones, or all but these and this program.
  struct Selection {
    bool allOthers = false;
    std::set<platform::AudioObjectID> processes;
  };

  // What the block gets, whatever rate the graph runs at.
  static constexpr platform::AudioStreamBasicDescription format{
      .sampleRate = 48'000,
      .formatFlags = platform::AudioStreamBasicDescription::isFloat,
      .bitsPerChannel = 32,
      .channelsPerFrame = 1};

  // The block runs on a thread of the tap's own. Throws PlatformError if there is no server, or if it does
  // not let us listen.
  PipeWireTap(std::shared_ptr<PipeWireGraph> graph, Selection selection, platform::IOBlock block);
  // When it has returned, no block runs or will run.
  ~PipeWireTap() override;
  PipeWireTap(const PipeWireTap&) = delete;
  PipeWireTap& operator=(const PipeWireTap&) = delete;

 private:
  struct Events;
  class Link;
  struct Port {
    std::uint32_t id;
    std::uint64_t serial;
    std::string channel;
  };
  // Of a link, ours last.
  using Ends = std::pair<std::uint64_t, std::uint64_t>; // serials of its ports
  using PortIDs = std::pair<std::uint32_t, std::uint32_t>;

  // Loop lock.
  void added(const PipeWireConnection::Global& global) override;
  void settled() override;
  void disconnected() override;
  bool open();
  void close();
  void relink();
  [[nodiscard]] std::vector<Port> ownPorts() const;
  [[nodiscard]] std::map<Ends, PortIDs> wanted(const std::vector<Port>& inputs) const;
  bool link(const Ends& ends, const PortIDs& ports);
  void awaitOpening();
  void onState(pw_filter_state state);

  void onProcess(const spa_io_position& position) noexcept; // real-time thread
  // Worker's thread.
  void deliver(const platform::AudioPCMBuffer& heard);
  bool follow(std::uint32_t rate);
  [[nodiscard]] const platform::AudioPCMBuffer* resampled();

  std::shared_ptr<PipeWireGraph> graph_;
  const Selection selection_;
  const platform::IOBlock block_;
  std::atomic<std::uint32_t> rate_; // of the graph, Hz

  // The worker's.
  std::unique_ptr<platform::AudioConverter> converter_; // from the graph's rate, if it is not ours
  platform::AudioPCMBuffer mono_;
  platform::AudioPCMBuffer resampled_;

  std::unique_ptr<PipeWireWorker> worker_;
  Filter filter_;
  Hook hook_;
  void* left_ = nullptr; // the filter's ports
  void* right_ = nullptr;
  bool open_ = false;     // what the filter says counts
  bool failed_ = false;   // the filter has ended by itself
  bool standing_ = false; // the filter is in the graph, and linked to all there is
  std::map<Ends, std::unique_ptr<Link>> links_;
};

} // namespace tolvera::adapters
