#pragma once

#include "Platform/Audio.h"
#include "TolveraCore/AudioCapture.h"

namespace tolvera {

// Converts one block and gives channel 0 of the result; empty for a block that cannot be converted. The
// converter keeps its state from block to block. `ratio` is the output's rate divided by the block's rate.
[[nodiscard]] SampleBlock convertBlock(const platform::AudioPCMBuffer& block, double ratio,
                                       const platform::AudioFormat& outputFormat,
                                       platform::AudioConverter& converter);

} // namespace tolvera
