#include "TolveraCore/CoreAudioTapBackend.h"

#include "TolveraCore/AudioProcesses.h"
#include "TolveraCore/SampleConversion.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <span>
#include <utility>

namespace tolvera {

using platform::AudioBuffer;
using platform::AudioFormat;
using platform::AudioObjectID;
using platform::AudioPCMBuffer;
using platform::AudioStreamBasicDescription;
using platform::OSStatus;
using platform::TapDescription;
namespace scopes = platform::scopes;
namespace selectors = platform::selectors;

namespace {

constexpr AudioFormat outputFormat{16000.0, 1};

std::string newUUID() { return boost::uuids::to_string(boost::uuids::random_generator()()); }

std::string described(const std::string& step, OSStatus status) {
  return status == 0 ? step : step + "失败（OSStatus " + std::to_string(status) + "）";
}

// One channel as it is, without a copy; of several the mean. Absent if there is no frame, or no memory for
// them.
std::optional<AudioPCMBuffer> mixed(const AudioBuffer& input, std::uint32_t channels,
                                    const AudioFormat& format) {
  const auto frames = static_cast<std::uint32_t>(input.dataByteSize / sizeof(float)) / channels;
  if (input.data == nullptr || frames < 1) return std::nullopt;
  if (channels == 1) return AudioPCMBuffer::borrow(format.sampleRate, input.data, frames);
  auto mono = AudioPCMBuffer::make(format, frames);
  float* out = mono ? mono->channel(0) : nullptr;
  if (out == nullptr) return std::nullopt;
  mono->setFrameLength(frames);

  const float* in = input.data;
  const auto divisor = static_cast<float>(channels);
  for (std::uint32_t frame = 0; frame < frames; ++frame) {
    float sum = 0;
    for (std::uint32_t channel = 0; channel < channels; ++channel) sum += *in++;
    out[frame] = sum / divisor;
  }
  return mono;
}

} // namespace

// `inputFormat` and `converter` are set before the IO block is registered and cleared after it is destroyed,
// so they need no lock.
struct CoreAudioTapBackend::IOState {
  std::unique_ptr<platform::AudioConverter> converter;
  std::optional<AudioFormat> inputFormat; // of the converter, always with one channel
  std::atomic<WallTime> lastCallback{distantPast};

  [[nodiscard]] SampleBlock samples(std::span<const AudioBuffer> inputs, std::uint32_t channels,
                                    double ratio) const {
    if (inputs.empty() || !converter || !inputFormat) return {};
    const auto mono = mixed(inputs.front(), channels, *inputFormat);
    return mono ? convertBlock(*mono, ratio, outputFormat, *converter) : SampleBlock();
  }
};

CoreAudioTapBackend::Failure::Failure(std::string step, OSStatus status)
    : std::runtime_error(described(step, status)), step_(std::move(step)), status_(status) {}

CoreAudioTapBackend::CoreAudioTapBackend(platform::AudioHardware& hardware, platform::AudioSystem& audio,
                                         const Clock& clock, Source source)
    : hardware_(hardware), audio_(audio), clock_(clock), source_(std::move(source)),
      io_(std::make_shared<IOState>()) {}

CoreAudioTapBackend::~CoreAudioTapBackend() { stop(); }

WallTime CoreAudioTapBackend::lastCallback() const { return io_->lastCallback; }

void CoreAudioTapBackend::start(OnSamples onSamples) {
  if (running_) return;
  try {
    createTap();
    const auto tapUID = AudioProcesses::string(hardware_, tapID_, selectors::tapUID);
    if (!tapUID) throw Failure("读取 tap UID");
    createAggregateDevice(*tapUID);
    const AudioStreamBasicDescription format = readStreamFormat();
    createConverter(format.sampleRate);
    startIO(format, std::move(onSamples));
  } catch (...) {
    release();
    throw;
  }
  running_ = true;
}

void CoreAudioTapBackend::stop() {
  if (!running_) return;
  running_ = false;
  release();
}

TapDescription CoreAudioTapBackend::tapDescription() const {
  TapDescription description;
  if (const auto* listed = std::get_if<Processes>(&source_)) {
    description.kind = TapDescription::Kind::monoMixdownOfProcesses;
    description.processes = listed->objectIDs;
  } else {
    description.kind = TapDescription::Kind::monoGlobalTapButExcludeProcesses;
    const auto own = AudioProcesses::object(hardware_, hardware_.processIdentifier());
    if (own) description.processes = {*own};
  }
  description.name = "Tolvera Tap";
  description.uuid = newUUID();
  description.isPrivate = true;
  description.muteBehavior = TapDescription::MuteBehavior::unmuted;
  return description;
}

void CoreAudioTapBackend::createTap() {
  const auto tap = hardware_.createProcessTap(tapDescription());
  if (tap.status != 0) throw Failure("创建 tap", tap.status);
  tapID_ = tap.value;
}

void CoreAudioTapBackend::createAggregateDevice(const std::string& tapUID) {
  const auto device = hardware_.createAggregateDevice({.name = "Tolvera Capture",
                                                       .uid = "com.merisol.tolvera.aggregate." + newUUID(),
                                                       .isPrivate = true,
                                                       .isStacked = false,
                                                       .tapAutoStart = true,
                                                       .subdevices = {},
                                                       .taps = {{.uid = tapUID, .drift = true}}});
  if (device.status != 0) throw Failure("创建聚合设备", device.status);
  aggregateID_ = device.value;
}

AudioStreamBasicDescription CoreAudioTapBackend::readStreamFormat() const {
  const auto property =
      hardware_.property(aggregateID_, {.selector = selectors::streamFormat, .scope = scopes::input});
  const auto* format = std::get_if<AudioStreamBasicDescription>(&property.value);
  if (property.status != 0 || format == nullptr) throw Failure("读取流格式", property.status);
  const bool isFloat = (format->formatFlags & AudioStreamBasicDescription::isFloat) != 0;
  if (!isFloat || format->bitsPerChannel != 32) {
    throw Failure("采集格式不是 Float32（实际 " + std::to_string(format->bitsPerChannel) + " 位）");
  }
  return *format;
}

void CoreAudioTapBackend::createConverter(double sampleRate) {
  if (!(sampleRate > 0)) throw Failure("创建重采样器");
  const AudioFormat inputFormat{sampleRate, 1};
  io_->converter = audio_.makeConverter(inputFormat, outputFormat);
  if (!io_->converter) throw Failure("创建重采样器");
  io_->inputFormat = inputFormat;
}

void CoreAudioTapBackend::startIO(const AudioStreamBasicDescription& format, OnSamples onSamples) {
  const std::uint32_t channels = std::max(format.channelsPerFrame, 1U);
  const double ratio = outputFormat.sampleRate / format.sampleRate;
  const auto proc = hardware_.createIOProc(
      aggregateID_, [weak = std::weak_ptr(io_), &clock = clock_, channels, ratio,
                     callback = std::move(onSamples)](std::span<const AudioBuffer> inputs) {
        const auto io = weak.lock();
        if (!io) return;
        io->lastCallback = clock.now();
        SampleBlock samples = io->samples(inputs, channels, ratio);
        if (!samples.empty()) callback(std::move(samples));
      });
  if (proc.status != 0) throw Failure("创建 IOProc", proc.status);
  procID_ = proc.value;
  const OSStatus status = hardware_.startDevice(aggregateID_, *procID_);
  if (status != 0) throw Failure("启动采集", status);
}

// IO has ended for good before anything that it reads is cleared.
void CoreAudioTapBackend::release() {
  if (procID_) {
    hardware_.stopDevice(aggregateID_, *procID_);
    hardware_.destroyIOProc(aggregateID_, *procID_);
    procID_.reset();
  }
  if (aggregateID_ != platform::noAudioObject) {
    hardware_.destroyAggregateDevice(aggregateID_);
    aggregateID_ = platform::noAudioObject;
  }
  if (tapID_ != platform::noAudioObject) {
    hardware_.destroyProcessTap(tapID_);
    tapID_ = platform::noAudioObject;
  }
  io_->converter.reset();
  io_->inputFormat.reset();
}

} // namespace tolvera
