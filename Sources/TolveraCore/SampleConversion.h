#pragma once

#include "Platform/Audio.h"
#include "TolveraCore/AudioCapture.h"

namespace tolvera {

// Sends one block through a converter that goes on from block to block, and gives channel 0 of what came
// out; none for a block that cannot be converted. `ratio` is the output's rate divided by the block's.
[[nodiscard]] SampleBlock convertBlock(const platform::AudioPCMBuffer& block, double ratio,
                                       const platform::AudioFormat& outputFormat,
                                       platform::AudioConverter& converter);

} // namespace tolvera
