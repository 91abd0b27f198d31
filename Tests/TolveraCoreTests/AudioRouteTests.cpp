#include "TolveraCore/AudioRoute.h"

#include "Fakes/InMemoryAudioHardware.h"

#include <gtest/gtest.h>

namespace tolvera {

namespace {

using platform::fourCharacterCode;

TEST(AudioRoute, TellsTheMachinesOwnOutputFromAnyOtherByItsTransportAlone) {
  test::InMemoryAudioHardware hardware;
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
  EXPECT_EQ(hardware.reads(), 2U) << "without an output there is nothing further to ask";

  for (const auto transport : {fourCharacterCode("bltn"), fourCharacterCode("usb "), 0U}) {
    hardware.addOutput(transport, "Built-in speakers");
    EXPECT_EQ(AudioRoute::isBuiltInSpeaker(hardware), transport == fourCharacterCode("bltn"));
    EXPECT_EQ(AudioRoute::outputName(hardware), "Built-in speakers");
  }
}

TEST(AudioRoute, WhatCannotBeReadIsNotBuiltInAndHasNoName) {
  test::InMemoryAudioHardware hardware;
  const auto device = hardware.addOutput(fourCharacterCode("bltn"), "Speakers");
  hardware.setProperty(device, fourCharacterCode("lnam"), platform::AudioPropertyValue());
  EXPECT_EQ(AudioRoute::outputName(hardware), "");
  for (const auto selector : {fourCharacterCode("tran"), fourCharacterCode("dOut")}) {
    hardware.readFailures = {{selector, -1}};
    EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware));
  }
}

} // namespace

} // namespace tolvera
