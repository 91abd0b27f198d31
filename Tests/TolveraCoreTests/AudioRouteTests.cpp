#include "TolveraCore/AudioRoute.h"

#include "Fakes/InMemoryAudioHardware.h"

#include <gtest/gtest.h>

namespace tolvera {
namespace {

using platform::fourCharacterCode;

TEST(AudioRoute, TellsBuiltInSpeakerByTransport) {
  test::InMemoryAudioHardware hardware;
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
  for (const auto transport : {fourCharacterCode("usb "), 0U, fourCharacterCode("bltn")}) {
    hardware.addOutput(transport, "Speakers");
    EXPECT_EQ(AudioRoute::isBuiltInSpeaker(hardware), transport == fourCharacterCode("bltn"));
    EXPECT_EQ(AudioRoute::outputName(hardware), "Speakers");
  }
  for (const auto selector : {fourCharacterCode("tran"), fourCharacterCode("dOut")}) {
    hardware.readFailures = {{selector, -1}};
    EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware)) << "what cannot be read is not built in";
  }
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
}

} // namespace
} // namespace tolvera
