#include "TolveraCore/AudioRoute.h"

#include "TolveraCore/AudioProperty.h"

#include <cstdint>
#include <optional>

namespace tolvera {

using platform::AudioHardware;
using platform::AudioObjectID;
namespace selectors = platform::selectors;
namespace transports = platform::transports;

namespace {

std::optional<AudioObjectID> defaultOutput(const AudioHardware& hardware) {
  const auto device =
      audioProperty<std::uint32_t>(hardware, platform::systemAudioObject, selectors::defaultOutputDevice);
  return device == platform::noAudioObject ? std::nullopt : device;
}

} // namespace

bool AudioRoute::isBuiltInSpeaker(const AudioHardware& hardware) {
  const auto device = defaultOutput(hardware);
  return device &&
         audioProperty<std::uint32_t>(hardware, *device, selectors::transportType) == transports::builtIn;
}

std::string AudioRoute::outputName(const AudioHardware& hardware) {
  const auto device = defaultOutput(hardware);
  if (!device) return {};
  return audioProperty<std::string>(hardware, *device, selectors::name).value_or("");
}

} // namespace tolvera
