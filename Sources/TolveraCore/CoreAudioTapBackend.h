#pragma once

#include "Async/Clock.h"
#include "Platform/Audio.h"
#include "Platform/AudioHardware.h"
#include "TolveraCore/AudioCapture.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace tolvera {

// Captures what other programs play: a tap on their processes, inside a private aggregate device whose IO
// block mixes to one channel and resamples. The tap and the device live for one capture. Main thread, but
// for the callback and `lastCallback`.
class CoreAudioTapBackend final : public AudioCaptureBackend {
 public:
  struct Processes {
    std::vector<platform::AudioObjectID> objectIDs;
    bool operator==(const Processes&) const = default;
  };
  struct EverythingExceptSelf {
    bool operator==(const EverythingExceptSelf&) const = default;
  };
  using Source = std::variant<Processes, EverythingExceptSelf>; // what the tap listens to

  // Why a capture could not start. `what()` is the text for the user.
  class Failure : public std::runtime_error {
   public:
    explicit Failure(std::string step, platform::OSStatus status = 0);

    [[nodiscard]] const std::string& step() const { return step_; }
    // 0 if the step failed without one.
    [[nodiscard]] platform::OSStatus status() const { return status_; }
    [[nodiscard]] std::string errorDescription() const { return what(); }

   private:
    std::string step_;
    platform::OSStatus status_;
  };

  // Touches no audio object. The references outlive the backend.
  CoreAudioTapBackend(platform::AudioHardware& hardware, platform::AudioSystem& audio, const Clock& clock,
                      Source source);
  ~CoreAudioTapBackend() override;
  CoreAudioTapBackend(const CoreAudioTapBackend&) = delete;
  CoreAudioTapBackend& operator=(const CoreAudioTapBackend&) = delete;

  // Throws Failure, and then leaves no audio object behind.
  void start(OnSamples onSamples) override;
  void stop() override;

  [[nodiscard]] const Source& source() const { return source_; }
  // When sound, or silence, last arrived; the distant past before that. Any thread.
  [[nodiscard]] WallTime lastCallback() const;

 private:
  // What the IO thread shares with the backend. The IO block holds it weakly.
  struct IOState;

  [[nodiscard]] platform::TapDescription tapDescription() const;
  void createTap();
  void createAggregateDevice(const std::string& tapUID);
  [[nodiscard]] platform::AudioStreamBasicDescription readStreamFormat() const;
  void createConverter(double sampleRate);
  void startIO(const platform::AudioStreamBasicDescription& format, OnSamples onSamples);
  void release();

  platform::AudioHardware& hardware_;
  platform::AudioSystem& audio_;
  const Clock& clock_;
  const Source source_;
  platform::AudioObjectID tapID_ = platform::noAudioObject;
  platform::AudioObjectID aggregateID_ = platform::noAudioObject;
  std::optional<platform::IOProcID> procID_;
  const std::shared_ptr<IOState> io_;
  bool running_ = false;
};

} // namespace tolvera
