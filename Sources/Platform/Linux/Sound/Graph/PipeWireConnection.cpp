#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"

#include "Async/Log.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>

namespace tolvera::adapters {

namespace {

constexpr std::chrono::milliseconds retryInterval{500};
// The configuration whose data threads run in real time. Since 1.4 the common one does.
#if PW_CHECK_VERSION(1, 4, 0)
constexpr const char* clientConfiguration = "client.conf";
#else
constexpr const char* clientConfiguration = "client-rt.conf";
#endif

} // namespace

struct PipeWireConnection::Events {
  static void info(void* data, const pw_core_info* info) {
    if (info->version != nullptr) static_cast<PipeWireConnection*>(data)->serverVersion_ = info->version;
  }
  static void done(void* data, std::uint32_t id, int sequence) {
    if (id == PW_ID_CORE) static_cast<PipeWireConnection*>(data)->onDone(sequence);
  }
  // Any other error concerns one object that went away while it was asked.
  static void error(void* data, std::uint32_t id, int /*sequence*/, int result, const char* /*message*/) {
    if (id != PW_ID_CORE || result != -EPIPE) return;
    auto* self = static_cast<PipeWireConnection*>(data);
    self->lost_ = true;
    self->arm(std::chrono::milliseconds(0)); // a connection cannot be dropped in its own event
  }
  static void global(void* data, std::uint32_t id, std::uint32_t /*permissions*/, const char* type,
                     std::uint32_t /*version*/, const spa_dict* properties) {
    const Global global{id, type, properties};
    for (Listener* listener : static_cast<PipeWireConnection*>(data)->listeners_) listener->added(global);
  }
  static void globalRemove(void* data, std::uint32_t id) {
    for (Listener* listener : static_cast<PipeWireConnection*>(data)->listeners_) listener->removed(id);
  }
  static void timer(void* data, std::uint64_t /*expirations*/) {
    static_cast<PipeWireConnection*>(data)->onTimer();
  }

  static const pw_core_events& core() {
    static const pw_core_events events = [] {
      pw_core_events made{};
      made.version = PW_VERSION_CORE_EVENTS;
      made.info = info;
      made.done = done;
      made.error = error;
      return made;
    }();
    return events;
  }
  static const pw_registry_events& registry() {
    static const pw_registry_events events = [] {
      pw_registry_events made{};
      made.version = PW_VERSION_REGISTRY_EVENTS;
      made.global = global;
      made.global_remove = globalRemove;
      return made;
    }();
    return events;
  }
};

PipeWireConnection::~PipeWireConnection() {
  if (loop_ == nullptr) return;
  {
    const LoopLock lock(loop_);
    disconnect();
    if (timer_ != nullptr) pw_loop_destroy_source(pw_thread_loop_get_loop(loop_), timer_);
  }
  pw_thread_loop_stop(loop_);
  pw_context_destroy(context_);
  pw_thread_loop_destroy(loop_);
}

bool PipeWireConnection::startLoop() {
  const std::lock_guard guard(starting_);
  if (loop_ != nullptr) return true;
  static std::once_flag once;
  std::call_once(once, [] { pw_init(nullptr, nullptr); });

  pw_thread_loop* loop = pw_thread_loop_new("tolvera-audio", nullptr);
  if (loop == nullptr) return false;
  pw_loop* events = pw_thread_loop_get_loop(loop);
  context_ = pw_context_new(events, pw_properties_new(PW_KEY_CONFIG_NAME, clientConfiguration, nullptr), 0);
  timer_ = context_ != nullptr ? pw_loop_add_timer(events, Events::timer, this) : nullptr;
  if (timer_ == nullptr || pw_thread_loop_start(loop) < 0) {
    if (timer_ != nullptr) pw_loop_destroy_source(events, timer_);
    if (context_ != nullptr) pw_context_destroy(context_);
    pw_thread_loop_destroy(loop);
    return false;
  }
  loop_ = loop;
  return true;
}

bool PipeWireConnection::open(std::chrono::milliseconds patience) {
  if (!startLoop()) return false;
  const LoopLock lock(loop_);
  if (lost_) disconnect();
  if (core_ == nullptr && !connect()) return false;
  waitFor([this] { return core_ == nullptr || ready_; }, patience);
  if (!ready_) log::warn(log::Category::sound, "the sound server does not answer");
  return ready_;
}

void PipeWireConnection::addListener(Listener& listener) { listeners_.push_back(&listener); }

void PipeWireConnection::removeListener(Listener& listener) { std::erase(listeners_, &listener); }

bool PipeWireConnection::connect() {
  core_ = pw_context_connect(context_, pw_properties_new(PW_KEY_APP_NAME, "Tolvera", nullptr), 0);
  if (core_ == nullptr) {
    arm(retryInterval);
    return false;
  }
  pw_core_add_listener(core_, coreHook_.get(), &Events::core(), this);
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  if (registry_ == nullptr) {
    disconnect();
    arm(retryInterval);
    return false;
  }
  pw_registry_add_listener(registry_, registryHook_.get(), &Events::registry(), this);
  changed();
  return true;
}

void PipeWireConnection::disconnect() {
  if (lost_) log::warn(log::Category::sound, "sound server lost");
  lost_ = ready_ = waiting_ = dirty_ = false;
  roundTrips_.clear();
  if (core_ == nullptr) return;
  for (Listener* listener : listeners_) listener->disconnected();
  registryHook_.remove();
  if (registry_ != nullptr) pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  registry_ = nullptr;
  coreHook_.remove();
  pw_core_disconnect(core_);
  core_ = nullptr;
  pw_thread_loop_signal(loop_, false);
}

void PipeWireConnection::arm(std::chrono::milliseconds delay) {
  const auto due = std::chrono::steady_clock::now() + delay;
  if (due_ && *due_ <= due) return;
  due_ = due;
  // A time of 0 would disarm it.
  timespec value{delay.count() / 1000, delay.count() % 1000 * 1'000'000 + 1};
  pw_loop_update_timer(pw_thread_loop_get_loop(loop_), timer_, &value, nullptr, false);
}

void PipeWireConnection::onTimer() {
  due_.reset();
  if (lost_) disconnect();
  if (core_ == nullptr) {
    connect();
  } else {
    changed();
  }
}

void PipeWireConnection::changed() {
  if (core_ == nullptr) return;
  if (waiting_) {
    dirty_ = true;
    return;
  }
  waiting_ = true;
  awaited_ = pw_core_sync(core_, PW_ID_CORE, 0);
}

void PipeWireConnection::retryIn(std::chrono::milliseconds delay) { arm(delay); }

void PipeWireConnection::waitFor(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
  timespec deadline{};
  pw_thread_loop_get_time(loop_, &deadline, std::chrono::nanoseconds(patience).count());
  while (!condition()) {
    if (pw_thread_loop_timed_wait_full(loop_, &deadline) != 0) return;
  }
}

void PipeWireConnection::roundTrip(std::chrono::milliseconds patience) {
  if (core_ == nullptr) return;
  const int sequence = pw_core_sync(core_, PW_ID_CORE, 0);
  roundTrips_.insert(sequence);
  waitFor([this, sequence] { return !roundTrips_.contains(sequence); }, patience);
  roundTrips_.erase(sequence);
}

void PipeWireConnection::onDone(int sequence) {
  if (roundTrips_.erase(sequence) > 0) pw_thread_loop_signal(loop_, false);
  if (!waiting_ || sequence != awaited_) return;
  waiting_ = false;
  if (dirty_) {
    dirty_ = false;
    changed();
    return;
  }
  wasReady_ = true;
  if (!std::exchange(ready_, true)) log::trace(log::Category::sound, "sound server connected");
  const std::vector<Listener*> listeners = listeners_;
  for (Listener* listener : listeners) listener->settled();
  pw_thread_loop_signal(loop_, false);
}

} // namespace tolvera::adapters
