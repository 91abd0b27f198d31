#include "TolveraCore/AudioRoute.h"

#include "Support/InMemoryAudioHardware.h"

#include <gtest/gtest.h>

namespace tolvera {

namespace {

using platform::fourCharacterCode;

constexpr std::uint32_t builtIn = fourCharacterCode("bltn");

TEST(AudioRoute, TellsTheMachinesOwnOutputFromAnyOtherByItsTransportAlone) {
  test::InMemoryAudioHardware hardware;
  hardware.addOutput(builtIn, "Headphones (USB)");
  EXPECT_TRUE(AudioRoute::isBuiltInSpeaker(hardware));
  EXPECT_EQ(AudioRoute::outputName(hardware), "Headphones (USB)");

  for (const auto transport :
       {fourCharacterCode("usb "), fourCharacterCode("blue"), fourCharacterCode("hdmi"), 0U}) {
    hardware.addOutput(transport, "Built-in speakers");
    EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));
  }
}

TEST(AudioRoute, WithoutAnOutputAsksNothingFurther) {
  test::InMemoryAudioHardware hardware;
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));
  EXPECT_EQ(hardware.reads(), 1U);
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
  EXPECT_EQ(hardware.reads(), 2U);
}

TEST(AudioRoute, WhatCannotBeReadIsNotBuiltInAndHasNoName) {
  test::InMemoryAudioHardware hardware;
  const auto device = hardware.addOutput(builtIn, "Speakers");
  hardware.setProperty(device, fourCharacterCode("lnam"), platform::AudioPropertyValue());
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
  hardware.readFailures[fourCharacterCode("tran")] = -1;
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));

  hardware.readFailures = {{fourCharacterCode("dOut"), -1}};
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
}

} // namespace

} // namespace tolvera
