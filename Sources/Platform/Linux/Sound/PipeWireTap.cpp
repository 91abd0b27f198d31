#include "Platform/Linux/Sound/PipeWireTap.h"

#include "Async/Log.h"
#include "Platform/Linux/Sound/SoxrConverter.h"
#include "Platform/PlatformError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <string_view>
#include <utility>

namespace tolvera::adapters {

namespace {

using platform::AudioFormat;
using platform::AudioPCMBuffer;
using platform::PlatformError;

constexpr std::chrono::seconds snapshotPatience{2};
constexpr std::chrono::milliseconds openingPatience{500};
constexpr std::chrono::milliseconds closingPatience{200};
constexpr std::chrono::milliseconds retryInterval{500}; // of a filter
constexpr std::chrono::milliseconds firstRetry{20};     // of a link; doubled with each failure
constexpr int mostDoublings = 5;
constexpr std::uint32_t blockFrames = 2048;
constexpr std::uint32_t usualRate = 48'000; // of the graph, Hz
constexpr AudioFormat heardFormat{usualRate, 2};
constexpr AudioFormat deliveredFormat{PipeWireTap::format.sampleRate, 1};
constexpr std::uint32_t deliveredFrames = blockFrames * 3; // holds a block at the lowest rate, 8 kHz

AudioPCMBuffer allocated(const AudioFormat& format, std::uint32_t frames) {
  auto buffer = AudioPCMBuffer::make(format, frames);
  if (!buffer) throw std::bad_alloc();
  return *std::move(buffer);
}

// True if a channel is heard on a side. The second letter of its name is the side ("FL", "RR", "FLC"); the
// name of an upper channel has a T in front ("TFL"). A channel with another name is in the middle, on both
// sides.
bool isOn(std::string_view channel, std::string_view side) {
  if (channel.starts_with('T')) channel.remove_prefix(1);
  const char letter = channel.size() > 1 ? channel[1] : ' ';
  return (letter != 'L' && letter != 'R') || letter == side.back();
}

void* addPort(pw_filter* filter, const char* name, const char* channel) {
  return pw_filter_add_port(filter, PW_DIRECTION_INPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(int),
                            pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME,
                                              name, PW_KEY_AUDIO_CHANNEL, channel, nullptr),
                            nullptr, 0);
}

} // namespace

// A link that the tap has made. It ends with this object, or when one of its ports goes.
class PipeWireTap::Link {
 public:
  explicit Link(PipeWireConnection& connection) : connection_(connection) {}

  void open(std::uint32_t from, std::uint32_t to) {
    close();
    pw_properties* properties =
        pw_properties_new(PW_KEY_LINK_PASSIVE, "false", PW_KEY_OBJECT_LINGER, "false", nullptr);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", from);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", to);
    proxy_.reset(static_cast<pw_link*>(pw_core_create_object(
        connection_.core(), "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties->dict, 0)));
    pw_properties_free(properties);
    gone_ = !proxy_;
    active_ = false;
    ports_ = "port " + std::to_string(from) + " to port " + std::to_string(to);
    if (!proxy_) return;
    pw_proxy_add_listener(reinterpret_cast<pw_proxy*>(proxy_.get()), proxyHook_.get(), &proxyEvents(), this);
    pw_link_add_listener(proxy_.get(), hook_.get(), &events(), this);
  }

  // True if the link is to be made again now. A link that keeps failing is tried less and less often.
  [[nodiscard]] bool due() {
    if (!gone_) return false;
    const auto now = std::chrono::steady_clock::now();
    if (now >= retryAt_) return true;
    connection_.retryIn(std::chrono::ceil<std::chrono::milliseconds>(retryAt_ - now));
    return false;
  }

 private:
  static const pw_proxy_events& proxyEvents() {
    static const pw_proxy_events events = [] {
      pw_proxy_events made{};
      made.version = PW_VERSION_PROXY_EVENTS;
      made.removed = [](void* data) { static_cast<Link*>(data)->onGone(); };
      made.error = [](void* data, int, int, const char*) { static_cast<Link*>(data)->onGone(); };
      return made;
    }();
    return events;
  }
  static const pw_link_events& events() {
    static const pw_link_events events = [] {
      pw_link_events made{};
      made.version = PW_VERSION_LINK_EVENTS;
      made.info = [](void* data, const pw_link_info* info) {
        if (info->state == PW_LINK_STATE_ERROR) static_cast<Link*>(data)->onGone();
        if (info->state == PW_LINK_STATE_ACTIVE) static_cast<Link*>(data)->onActive();
      };
      return made;
    }();
    return events;
  }

  void close() {
    proxyHook_.remove();
    hook_.remove();
    proxy_.reset();
  }
  void onActive() {
    failures_ = 0;
    if (std::exchange(active_, true)) return;
    log::trace(log::Category::sound, "link made: ", ports_);
  }
  void onGone() {
    if (gone_) return;
    gone_ = true;
    log::trace(log::Category::sound, "link lost: ", ports_);
    retryAt_ = std::chrono::steady_clock::now() + firstRetry * (1 << std::min(failures_++, mostDoublings));
    connection_.changed();
  }

  PipeWireConnection& connection_;
  Proxy<pw_link> proxy_;
  Hook proxyHook_;
  Hook hook_;
  bool gone_ = true;
  bool active_ = false; // the server has made it
  std::string ports_;   // for the trace
  int failures_ = 0;
  std::chrono::steady_clock::time_point retryAt_;
};

struct PipeWireTap::Events {
  static void state(void* data, pw_filter_state /*old*/, pw_filter_state state, const char* /*error*/) {
    static_cast<PipeWireTap*>(data)->onState(state);
  }
  static void process(void* data, spa_io_position* position) {
    if (position != nullptr) static_cast<PipeWireTap*>(data)->onProcess(*position);
  }
  static const pw_filter_events& all() {
    static const pw_filter_events events = [] {
      pw_filter_events made{};
      made.version = PW_VERSION_FILTER_EVENTS;
      made.state_changed = state;
      made.process = process;
      return made;
    }();
    return events;
  }
};

PipeWireTap::PipeWireTap(std::shared_ptr<PipeWireGraph> graph, Selection selection, platform::IOBlock block)
    : graph_(std::move(graph)), selection_(std::move(selection)), block_(std::move(block)), rate_(usualRate),
      mono_(allocated({usualRate, 1}, blockFrames)), delivered_(allocated(deliveredFormat, deliveredFrames)),
      worker_(std::make_unique<PipeWireWorker>(heardFormat, blockFrames,
                                               [this](const AudioPCMBuffer& heard) { deliver(heard); })) {
  graph_->connect(snapshotPatience);
  PipeWireConnection& connection = graph_->connection;
  const LoopLock lock(connection.loop());
  if (!open()) throw PlatformError("PipeWire", EIO, "The sound server refuses the tap.");
  connection.addListener(*this);
  connection.changed();
  awaitOpening();
}

PipeWireTap::~PipeWireTap() {
  {
    const LoopLock lock(graph_->connection.loop());
    graph_->connection.removeListener(*this);
    // The library leaks the descriptors of a link whose node is destroyed first.
    links_.clear();
    graph_->connection.roundTrip(closingPatience);
    close();
  }
  worker_.reset();
}

// Sound that is played after its return is heard. If the server is slow, the tap goes on opening by itself.
void PipeWireTap::awaitOpening() {
  graph_->connection.waitFor([this] { return !filter_ || failed_ || linked_; }, openingPatience);
}

// Links a stream as soon as it has its ports, as the session manager does, so that its first sound is heard.
void PipeWireTap::added(const PipeWireConnection::Global& global) {
  if (filter_ && !failed_ && std::string_view(global.type) == PW_TYPE_INTERFACE_Port) relink();
}

void PipeWireTap::settled() { relink(); }

void PipeWireTap::disconnected() { close(); }

bool PipeWireTap::open() {
  // The session manager links no node without a media class, and no mixer lists it. The node runs only with
  // the streams that it is linked to.
  filter_.reset(pw_filter_new(graph_->connection.core(), "Tolvera Tap",
                              pw_properties_new(PW_KEY_NODE_NAME, "tolvera-tap", PW_KEY_NODE_DESCRIPTION,
                                                "Tolvera Tap", PW_KEY_APP_NAME, "Tolvera",
                                                PW_KEY_NODE_WANT_DRIVER, "false", nullptr)));
  if (!filter_) return false;
  open_ = true;
  left_ = addPort(filter_.get(), "input_FL", "FL");
  right_ = addPort(filter_.get(), "input_FR", "FR");
  pw_filter_add_listener(filter_.get(), hook_.get(), &Events::all(), this);
  const bool connected = left_ != nullptr && right_ != nullptr &&
                         pw_filter_connect(filter_.get(), PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) >= 0;
  if (!connected) close();
  return connected;
}

void PipeWireTap::close() {
  open_ = false;
  links_.clear();
  // Disconnecting ends the real-time callback, which uses what is destroyed next.
  if (filter_) pw_filter_disconnect(filter_.get());
  hook_.remove();
  filter_.reset();
  left_ = right_ = nullptr;
  failed_ = linked_ = false;
}

void PipeWireTap::relink() {
  if (graph_->connection.core() == nullptr) return;
  if (failed_) close();
  if (!filter_) {
    if (!open()) graph_->connection.retryIn(retryInterval);
    return;
  }
  const std::vector<Port> inputs = inputPorts();
  const auto ends = wanted(inputs);
  std::erase_if(links_, [&ends](const auto& held) { return !ends.contains(held.first); });
  bool made = false;
  for (const auto& [key, ports] : ends) made |= link(key, ports);
  if (made) graph_->connection.changed();
  if (inputs.size() != 2 || made || linked_) return;
  linked_ = true;
  log::trace(log::Category::sound, "tap started: node ", pw_filter_get_node_id(filter_.get()), ", ",
             links_.size(), " links");
}

std::vector<PipeWireTap::Port> PipeWireTap::inputPorts() const {
  std::vector<Port> inputs;
  const std::uint32_t node = pw_filter_get_node_id(filter_.get());
  if (node == PW_ID_ANY) return inputs;
  for (const auto& [id, port] : graph_->objects.ports()) {
    if (port.node == node && port.input) inputs.push_back({id, port.serial, port.channel});
  }
  return inputs;
}

std::map<PipeWireTap::Ends, PipeWireTap::PortIDs> PipeWireTap::wanted(const std::vector<Port>& inputs) const {
  std::map<Ends, PortIDs> ends;
  const auto nodes = graph_->processes.playbacks(selection_.processes, selection_.allOthers);
  for (const auto& [id, output] : graph_->objects.ports()) {
    if (output.input || !nodes.contains(output.node)) continue;
    for (const Port& input : inputs) {
      if (isOn(output.channel, input.channel))
        ends.emplace(Ends{output.serial, input.serial}, PortIDs{id, input.id});
    }
  }
  return ends;
}

// True if it had to be made.
bool PipeWireTap::link(const Ends& ends, const PortIDs& ports) {
  auto& held = links_[ends];
  if (!held) held = std::make_unique<Link>(graph_->connection);
  if (!held->due()) return false;
  held->open(ports.first, ports.second);
  return true;
}

// A filter that has ended for any reason is replaced by a new one.
void PipeWireTap::onState(pw_filter_state state) {
  if (!open_) return;
  if (state == PW_FILTER_STATE_ERROR || state == PW_FILTER_STATE_UNCONNECTED) {
    failed_ = true;
    graph_->connection.retryIn(retryInterval);
  }
  pw_thread_loop_signal(graph_->connection.loop(), false);
}

void PipeWireTap::onProcess(const spa_io_position& position) noexcept {
  const auto frames = static_cast<std::uint32_t>(position.clock.duration);
  const std::array<const float*, 2> planes{
      static_cast<const float*>(pw_filter_get_dsp_buffer(left_, frames)),
      static_cast<const float*>(pw_filter_get_dsp_buffer(right_, frames))};
  rate_.store(position.clock.rate.denom, std::memory_order_relaxed);
  worker_->deliver(planes.data(), frames);
}

void PipeWireTap::deliver(const AudioPCMBuffer& heard) {
  if (!adoptRate(rate_.load(std::memory_order_relaxed))) return;
  const std::uint32_t frames = heard.frameLength();
  const float* left = heard.channel(0);
  const float* right = heard.channel(1);
  float* mono = mono_.channel(0);
  for (std::uint32_t i = 0; i < frames; ++i) mono[i] = 0.5F * (left[i] + right[i]);
  mono_.setFrameLength(frames);
  const AudioPCMBuffer* next = &mono_;
  const bool converted = converter_->convert(delivered_, [&next]() -> platform::AudioConverter::Input {
    const AudioPCMBuffer* buffer = std::exchange(next, nullptr);
    if (buffer == nullptr) return {};
    return {buffer, platform::AudioConverter::InputStatus::haveData};
  });
  if (!converted || delivered_.frameLength() == 0) return;
  const platform::AudioBuffer buffer{delivered_.channel(0),
                                     delivered_.frameLength() * static_cast<std::uint32_t>(sizeof(float))};
  block_(std::span(&buffer, 1));
}

// The graph's rate may change at any time. False if it cannot be converted.
bool PipeWireTap::adoptRate(std::uint32_t rate) {
  const AudioFormat heard{static_cast<double>(rate), 1};
  if (converter_ && mono_.format() == heard) return true;
  auto mono = AudioPCMBuffer::make(heard, blockFrames);
  if (!mono) return false;
  mono_ = *std::move(mono);
  converter_ = SoxrConverter::make(heard, deliveredFormat);
  if (!converter_) return false;
  traceRate();
  return true;
}

void PipeWireTap::traceRate() const {
  log::trace(log::Category::sound, "tap's stream: float, 1 channel, ", mono_.format().sampleRate,
             " Hz in the graph, ", format.sampleRate, " Hz delivered");
}

} // namespace tolvera::adapters
