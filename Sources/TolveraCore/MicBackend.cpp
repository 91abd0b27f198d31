#include "TolveraCore/MicBackend.h"

#include "Platform/PlatformError.h"
#include "TolveraCore/SampleConversion.h"

#include <cstdint>
#include <utility>

namespace tolvera {

using platform::AudioFormat;
using platform::AudioPCMBuffer;

namespace {

constexpr std::uint32_t tapFrames = 2048;

} // namespace

MicBackend::MicBackend(platform::AudioSystem& audio) : audio_(audio), engine_(audio.makeEngine()) {}

MicBackend::~MicBackend() { stop(); }

void MicBackend::start(OnSamples onSamples) {
  if (running_) return;
  platform::AudioInputNode& input = engine_->inputNode();
  const AudioFormat hardware = input.outputFormat(0);
  if (!(hardware.sampleRate > 0)) {
    throw platform::PlatformError("Tolvera", 10, "拿不到麦克风格式，检查系统设置里的麦克风权限。");
  }
  converter_ = audio_.makeConverter(hardware, outputFormat_);
  if (!converter_) throw platform::PlatformError("Tolvera", 11, "创建重采样器失败");
  const double ratio = outputFormat_.sampleRate / hardware.sampleRate;
  input.installTap(0, tapFrames, hardware,
                   [ratio, format = outputFormat_, converter = converter_,
                    callback = std::move(onSamples)](const AudioPCMBuffer& block) {
                     SampleBlock samples = convertBlock(block, ratio, format, *converter);
                     if (!samples.empty()) callback(std::move(samples));
                   });
  try {
    engine_->start();
  } catch (...) {
    input.removeTap(0);
    converter_.reset();
    throw;
  }
  running_ = true;
}

void MicBackend::stop() {
  if (!running_) return;
  running_ = false;
  engine_->inputNode().removeTap(0);
  engine_->stop();
  converter_.reset();
}

} // namespace tolvera
