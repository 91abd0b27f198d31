#pragma once

#include "Platform/AudioHardware.h"
#include "Platform/Locale.h"
#include "Platform/RunningApplications.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tolvera {

// A process as the sound server lists it.
struct AudioProcessInfo {
  platform::AudioObjectID id = platform::noAudioObject;
  std::int32_t pid = 0;
  std::optional<std::string> bundleID; // as the sound server reports it
  std::string name;                    // for display
  bool isPlaying = false;              // sends audio to an output right now

  bool operator==(const AudioProcessInfo&) const = default;
};

// An application of the list for the user, with all its audio processes.
struct AudioApp {
  std::string bundleID;
  std::string name; // localised
  bool isPlaying = false;
  std::vector<platform::AudioObjectID> objectIDs; // in the server's order

  [[nodiscard]] const std::string& id() const { return bundleID; }
  bool operator==(const AudioApp&) const = default;
};

// The directory of audio processes and of the applications that own them. Every call reads the platform
// again. No call fails: what cannot be read is left out. Main thread.
namespace AudioProcesses {

// Every process object with a process id, in the server's order.
[[nodiscard]] std::vector<AudioProcessInfo> list(const platform::AudioHardware& hardware,
                                                 const platform::RunningApplications& applications);
// The applications that have audio processes, without this program. Those that play come first; each group is
// sorted by name.
[[nodiscard]] std::vector<AudioApp> userApps(const platform::AudioHardware& hardware,
                                             const platform::RunningApplications& applications,
                                             const platform::Locale& locale);
// The process object of a process; absent if it has none.
[[nodiscard]] std::optional<platform::AudioObjectID> object(const platform::AudioHardware& hardware,
                                                            std::int32_t pid);
// The text of an object under a four-character selector; absent if there is none.
[[nodiscard]] std::optional<std::string> string(const platform::AudioHardware& hardware,
                                                platform::AudioObjectID object, std::uint32_t selector);

} // namespace AudioProcesses

} // namespace tolvera

template<>
struct std::hash<tolvera::AudioProcessInfo> {
  std::size_t operator()(const tolvera::AudioProcessInfo& process) const;
};

template<>
struct std::hash<tolvera::AudioApp> {
  std::size_t operator()(const tolvera::AudioApp& app) const;
};
