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

// Listens to what other programs play, for as long as it lives. It is a node that the session manager leaves
// alone, with a link from each tapped stream; the streams' own links to the output stay. Streams are linked
// as they come, after a change of output and after a restart of the sound server too. Owned by the audio
// hardware; main thread.
class PipeWireTap final : private PipeWireConnection::Listener {
 public:
  // The listed processes, or all processes but these and this program.
  struct Selection {
    bool allOthers = false;
    std::set<platform::AudioObjectID> processes;
  };

  // What the block gets at every rate of the graph. It is the rate that captured sound is wanted at, so that
  // sound is resampled once.
  static constexpr platform::AudioStreamBasicDescription format{
      .sampleRate = 16'000,
      .formatFlags = platform::AudioStreamBasicDescription::isFloat,
      .bitsPerChannel = 32,
      .channelsPerFrame = 1};

  // The block runs on a thread of the tap's own. Throws PlatformError if there is no server, or if it refuses
  // the tap.
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
  // Ports of one link; the tap's is the last.
  using Ends = std::pair<std::uint64_t, std::uint64_t>; // their serials
  using PortIDs = std::pair<std::uint32_t, std::uint32_t>;

  // Loop lock.
  void added(const PipeWireConnection::Global& global) override;
  void settled() override;
  void disconnected() override;
  bool open();
  void close();
  void relink();
  [[nodiscard]] std::vector<Port> inputPorts() const;
  [[nodiscard]] std::map<Ends, PortIDs> wanted(const std::vector<Port>& inputs) const;
  bool link(const Ends& ends, const PortIDs& ports);
  void awaitOpening();
  void onState(pw_filter_state state);

  void onProcess(const spa_io_position& position) noexcept; // real-time thread
  // Worker's thread.
  void deliver(const platform::AudioPCMBuffer& heard);
  bool adoptRate(std::uint32_t rate);
  void traceRate() const;

  std::shared_ptr<PipeWireGraph> graph_;
  const Selection selection_;
  const platform::IOBlock block_;
  std::atomic<std::uint32_t> rate_; // of the graph, Hz

  // Used on the worker's thread.
  platform::AudioPCMBuffer mono_; // at the graph's rate
  std::unique_ptr<platform::AudioConverter> converter_;
  platform::AudioPCMBuffer delivered_;

  std::unique_ptr<PipeWireWorker> worker_;
  Filter filter_;
  Hook hook_;
  void* left_ = nullptr; // the filter's ports
  void* right_ = nullptr;
  bool open_ = false;   // events of the filter are heeded
  bool failed_ = false; // the filter has ended by itself
  bool linked_ = false; // the filter is in the graph, with a link from every stream that is tapped
  std::map<Ends, std::unique_ptr<Link>> links_;
};

} // namespace tolvera::adapters
