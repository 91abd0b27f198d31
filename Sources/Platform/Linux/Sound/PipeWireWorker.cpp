#include "Platform/Linux/Sound/PipeWireWorker.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

namespace tolvera::adapters {

namespace {

constexpr double heldSeconds = 0.5; // how long a block may take before samples are lost

std::size_t ringFrames(const platform::AudioFormat& format, std::uint32_t bufferSize) {
  return std::max<std::size_t>(static_cast<std::size_t>(format.sampleRate * heldSeconds), bufferSize);
}

} // namespace

PipeWireWorker::PipeWireWorker(const platform::AudioFormat& format, std::uint32_t bufferSize,
                               platform::AudioInputNode::TapBlock block)
    : block_(std::move(block)), ring_(format.channelCount, ringFrames(format, bufferSize)) {
  auto buffer = platform::AudioPCMBuffer::make(format, std::max(bufferSize, 1U));
  if (!buffer) throw std::bad_alloc();
  sem_init(&arrived_, 0, 0);
  try {
    thread_ = std::thread([this, held = std::move(*buffer)]() mutable { run(std::move(held)); });
  } catch (const std::system_error&) {
    sem_destroy(&arrived_);
    throw;
  }
  pthread_setname_np(thread_.native_handle(), "tolvera-tap");
}

PipeWireWorker::~PipeWireWorker() {
  ending_.store(true, std::memory_order_release);
  sem_post(&arrived_);
  thread_.join();
  sem_destroy(&arrived_);
}

void PipeWireWorker::deliver(const float* const* planes, std::size_t frames) noexcept {
  ring_.write(planes, frames);
  sem_post(&arrived_);
}

void PipeWireWorker::run(platform::AudioPCMBuffer buffer) {
  while (true) {
    while (sem_wait(&arrived_) != 0 && errno == EINTR) {
    }
    while (!ending_.load(std::memory_order_acquire) && ring_.read(buffer)) block_(buffer);
    if (ending_.load(std::memory_order_acquire)) return;
  }
}

} // namespace tolvera::adapters
