#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace tolvera::platform {

// Objects of the sound server: the system itself, processes that play, devices, taps.
using AudioObjectID = std::uint32_t;
inline constexpr AudioObjectID noAudioObject = 0;
inline constexpr AudioObjectID systemAudioObject = 1;

// 0 is success; anything else is a failure of the sound server, shown to the user as a number.
using OSStatus = std::int32_t;

// A selector, scope or constant of four characters; its value is its four bytes read big-endian.
constexpr std::uint32_t fourCharacterCode(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (std::size_t i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

inline constexpr auto noSuchObject = static_cast<OSStatus>(fourCharacterCode("!obj"));
inline constexpr auto noSuchProperty = static_cast<OSStatus>(fourCharacterCode("who?"));

struct AudioStreamBasicDescription {
  static constexpr std::uint32_t isFloat = 1; // bit of formatFlags

  double sampleRate = 0; // Hz
  std::uint32_t formatFlags = 0;
  std::uint32_t bitsPerChannel = 0;
  std::uint32_t channelsPerFrame = 0;

  bool operator==(const AudioStreamBasicDescription&) const = default;
};

// Which property of an object: its selector, its scope, and what qualifies it, such as a process id.
struct AudioPropertyAddress {
  std::uint32_t selector = 0;
  std::uint32_t scope = fourCharacterCode("glob");
  std::optional<std::int32_t> qualifier = std::nullopt;
};

// A property's value. An object list, a number, a text, or a stream format; absent if the object has the
// property but there is nothing in it (a null text).
using AudioPropertyValue = std::variant<std::monostate, std::uint32_t, std::int32_t, std::string,
                                        std::vector<AudioObjectID>, AudioStreamBasicDescription>;

struct TapDescription {
  enum class Kind {
    // The listed processes, mixed, whatever streams they open and close meanwhile.
    monoMixdownOfProcesses,
    // Every process but the listed ones; the list may be empty. This program is left out, listed or not:
    // it may have had nothing to list when the tap was made, and play later.
    monoGlobalTapButExcludeProcesses,
  };
  enum class MuteBehavior { unmuted = 0 }; // what is tapped stays audible

  Kind kind = Kind::monoMixdownOfProcesses;
  std::vector<AudioObjectID> processes;
  std::string name;
  std::string uuid;
  bool isPrivate = false; // seen by this program alone
  MuteBehavior muteBehavior = MuteBehavior::unmuted;
};

struct AggregateDescription {
  struct Tap {
    std::string uid;
    bool drift = false; // compensate for the difference of clocks
  };

  std::string name;
  std::string uid;
  bool isPrivate = false;
  bool isStacked = false;
  bool tapAutoStart = false;
  std::vector<std::string> subdevices;
  std::vector<Tap> taps;
};

// One buffer of an IO callback: interleaved 32-bit floats. `data` may be null.
struct AudioBuffer {
  const float* data = nullptr;
  std::uint32_t dataByteSize = 0;
};

// Runs on the sound server's IO thread, one call at a time. The buffers are valid during the call.
using IOBlock = std::function<void(std::span<const AudioBuffer> inputs)>;
using IOProcID = std::uint64_t;

template<typename T>
struct OSResult {
  OSStatus status = 0;
  T value{}; // meaningful when `status` is 0
};

// The sound server's objects. Main thread, except that reads may come from any thread; a read answers from
// a mirror and never waits for the server, but for a bounded wait after the first connection.
//
// System object: "prs#" (process objects, in the server's order), "id2p" (qualified by a process id: its
// process object, 0 if none), "dOut" (default output device, 0 if none). Process object: "ppid", "pbid",
// "piro" (non-zero while it plays). Device: "tran" (transport, "bltn" for the machine's own), "lnam". Tap:
// "tuid". Aggregate device: "sfmt" in scope "inpt".
//
// A process object is a process, however many streams and connections it has, and its id is not used for
// another process while the program runs.
class AudioHardware {
 public:
  virtual ~AudioHardware() = default;

  // This program's own process id, as "ppid" would have it.
  [[nodiscard]] virtual std::int32_t processIdentifier() const = 0;
  [[nodiscard]] virtual OSResult<AudioPropertyValue> property(AudioObjectID object,
                                                              const AudioPropertyAddress& address) const = 0;

  virtual OSResult<AudioObjectID> createProcessTap(const TapDescription& description) = 0;
  virtual OSStatus destroyProcessTap(AudioObjectID tap) = 0;
  virtual OSResult<AudioObjectID> createAggregateDevice(const AggregateDescription& description) = 0;
  virtual OSStatus destroyAggregateDevice(AudioObjectID device) = 0;
  // The block runs only between `startDevice` and `stopDevice`, and while what is tapped plays.
  virtual OSResult<IOProcID> createIOProc(AudioObjectID device, IOBlock block) = 0;
  virtual OSStatus startDevice(AudioObjectID device, IOProcID proc) = 0;
  // No IO block runs once it has returned.
  virtual OSStatus stopDevice(AudioObjectID device, IOProcID proc) = 0;
  // Destroys the block too, before it returns.
  virtual OSStatus destroyIOProc(AudioObjectID device, IOProcID proc) = 0;
};

} // namespace tolvera::platform
