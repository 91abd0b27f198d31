#pragma once

#include "Platform/AudioHardware.h"

#include <string>

namespace tolvera {

// Where sound goes out now. Read afresh on every call; main thread.
namespace AudioRoute {

// True if the default output is the machine's own.
[[nodiscard]] bool isBuiltInSpeaker(const platform::AudioHardware& hardware);
// The name of the default output; empty if there is none.
[[nodiscard]] std::string outputName(const platform::AudioHardware& hardware);

} // namespace AudioRoute

} // namespace tolvera
