#include "TolveraCore/SampleConversion.h"

#include <cstdint>
#include <limits>
#include <utility>

namespace tolvera {

using platform::AudioConverter;
using platform::AudioPCMBuffer;

namespace {

constexpr std::uint32_t spareFrames = 16; // room for what the converter held back before

} // namespace

SampleBlock convertBlock(const AudioPCMBuffer& block, double ratio, const platform::AudioFormat& outputFormat,
                         AudioConverter& converter) {
  const double frames = ratio * block.frameLength();
  if (!(frames < std::numeric_limits<std::uint32_t>::max() - spareFrames)) return {};
  auto output = AudioPCMBuffer::make(outputFormat, static_cast<std::uint32_t>(frames) + spareFrames);
  if (!output) return {};

  bool handedOver = false;
  const bool converted = converter.convert(*output, [&block, &handedOver]() -> AudioConverter::Input {
    if (std::exchange(handedOver, true)) return {};
    return {&block, AudioConverter::InputStatus::haveData};
  });
  const float* samples = std::as_const(*output).channel(0);
  if (!converted || samples == nullptr) return {};
  return {samples, samples + output->frameLength()};
}

} // namespace tolvera
