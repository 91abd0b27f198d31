#pragma once

#include <pipewire/pipewire.h>

#include <memory>

// Small owners of PipeWire's C objects. All of them are made and destroyed under the loop lock.
namespace tolvera::adapters {

// Holds the loop's lock; without a loop there is no other thread and nothing to hold.
class LoopLock {
 public:
  explicit LoopLock(pw_thread_loop* loop) : loop_(loop) {
    if (loop_ != nullptr) pw_thread_loop_lock(loop_);
  }
  ~LoopLock() {
    if (loop_ != nullptr) pw_thread_loop_unlock(loop_);
  }
  LoopLock(const LoopLock&) = delete;
  LoopLock& operator=(const LoopLock&) = delete;

 private:
  pw_thread_loop* loop_;
};

// A registration for events. It must go before the object that sends them: declare it after that object.
class Hook {
 public:
  Hook() = default;
  ~Hook() { remove(); }
  Hook(const Hook&) = delete;
  Hook& operator=(const Hook&) = delete;

  spa_hook* get() { return &hook_; } // to register with, once
  void remove() {
    if (hook_.link.next != nullptr) spa_hook_remove(&hook_);
    hook_ = {};
  }

 private:
  spa_hook hook_{};
};

template<auto destroy>
struct PipeWireDeleter {
  template<typename T>
  void operator()(T* object) const {
    destroy(object);
  }
};

// Proxies of the server's objects, of every interface: pw_node, pw_metadata, pw_link, ...
template<typename T>
struct ProxyDeleter {
  void operator()(T* object) const { pw_proxy_destroy(reinterpret_cast<pw_proxy*>(object)); }
};
template<typename T>
using Proxy = std::unique_ptr<T, ProxyDeleter<T>>;
using Stream = std::unique_ptr<pw_stream, PipeWireDeleter<pw_stream_destroy>>;
using Filter = std::unique_ptr<pw_filter, PipeWireDeleter<pw_filter_destroy>>;

} // namespace tolvera::adapters
