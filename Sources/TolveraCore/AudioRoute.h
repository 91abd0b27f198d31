#pragma once

#include "Platform/AudioHardware.h"

#include <string>

namespace tolvera {

// The default output of sound. Every call reads it again. Main thread.
namespace AudioRoute {

// True if the default output is the machine's built-in speaker.
[[nodiscard]] bool isBuiltInSpeaker(const platform::AudioHardware& hardware);
// The name of the default output; empty if there is none.
[[nodiscard]] std::string outputName(const platform::AudioHardware& hardware);

} // namespace AudioRoute

} // namespace tolvera
