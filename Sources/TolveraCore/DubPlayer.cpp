#include "TolveraCore/DubPlayer.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

namespace tolvera {

using platform::AudioPCMBuffer;

namespace {

// Added for each piece, since the device plays a piece some time after it was queued.
constexpr Duration margin = std::chrono::milliseconds(400);

Duration durationOf(std::size_t samples) {
  const std::chrono::duration<double> seconds(static_cast<double>(samples) / DubPlayer::sampleRate);
  return std::chrono::duration_cast<Duration>(seconds);
}

std::optional<AudioPCMBuffer> bufferOf(const std::vector<float>& samples, platform::AudioPlayerNode& node,
                                       const platform::AudioFormat& format) {
  if (samples.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  auto buffer = node.makeBuffer(format, static_cast<std::uint32_t>(samples.size()));
  float* channel = buffer ? buffer->channel(0) : nullptr;
  if (channel == nullptr) return std::nullopt;
  buffer->setFrameLength(buffer->frameCapacity());
  std::copy(samples.begin(), samples.end(), channel);
  return buffer;
}

} // namespace

DubPlayer::DubPlayer(platform::AudioPlayback& playback, const Clock& clock)
    : clock_(clock), node_(playback.makePlayerNode()), engine_(playback.makeOutputEngine()) {}

DubPlayer::~DubPlayer() { stop(); }

void DubPlayer::start() {
  const std::scoped_lock lock(lock_);
  if (running_) return;
  engine_->attach(*node_);
  engine_->connectToMainMixer(*node_, format_);
  try {
    engine_->start();
  } catch (...) {
    engine_->detach(*node_);
    throw;
  }
  node_->play();
  running_ = true;
}

void DubPlayer::play(const std::vector<float>& samples) {
  const std::scoped_lock lock(lock_);
  if (!running_ || samples.empty()) return;
  auto buffer = bufferOf(samples, *node_, format_);
  if (!buffer) return;
  speakingUntil_ = std::max(speakingUntil_, clock_.now()) + durationOf(samples.size()) + margin;
  node_->scheduleBuffer(*std::move(buffer));
}

void DubPlayer::stop() {
  const std::scoped_lock lock(lock_);
  if (!running_) return;
  running_ = false;
  speakingUntil_ = distantPast;
  node_->stop();
  engine_->stop();
  engine_->detach(*node_);
}

bool DubPlayer::isSpeaking() const {
  const std::scoped_lock lock(lock_);
  return clock_.now() < speakingUntil_;
}

} // namespace tolvera
