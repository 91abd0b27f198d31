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

// 0 is success; any other number is a failure of the sound server, shown to the user.
using OSStatus = std::int32_t;

// A selector, scope or constant of four characters; its value is its four bytes read big-endian.
constexpr std::uint32_t fourCharacterCode(const char (&text)[5]) {
  std::uint32_t code = 0;
  for (std::size_t i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

inline constexpr auto noSuchObject = static_cast<OSStatus>(fourCharacterCode("!obj"));
inline constexpr auto noSuchProperty = static_cast<OSStatus>(fourCharacterCode("who?"));

namespace selectors {
// Of the system object.
inline constexpr auto processObjectList = fourCharacterCode("prs#"); // in the server's order
inline constexpr auto processObjectForPID =
    fourCharacterCode("id2p"); // qualified by a process id; 0 if it has none
inline constexpr auto defaultOutputDevice = fourCharacterCode("dOut"); // 0 if there is none
// Of a process object.
inline constexpr auto processID = fourCharacterCode("ppid");
inline constexpr auto bundleID = fourCharacterCode("pbid");
inline constexpr auto isRunningOutput = fourCharacterCode("piro"); // not 0 while the process plays
// Of a device.
inline constexpr auto transportType = fourCharacterCode("tran"); // one of `transports`
inline constexpr auto name = fourCharacterCode("lnam");
// Of a tap.
inline constexpr auto tapUID = fourCharacterCode("tuid");
// Of an aggregate device, in the scope `input`.
inline constexpr auto streamFormat = fourCharacterCode("sfmt");
} // namespace selectors

namespace scopes {
inline constexpr auto global = fourCharacterCode("glob");
inline constexpr auto input = fourCharacterCode("inpt");
} // namespace scopes

// How a device is connected; 0 is any other way.
namespace transports {
inline constexpr auto builtIn = fourCharacterCode("bltn"); // the machine's own
inline constexpr auto usb = fourCharacterCode("usb ");
inline constexpr auto bluetooth = fourCharacterCode("blue");
inline constexpr auto hdmi = fourCharacterCode("hdmi");
} // namespace transports

struct AudioStreamBasicDescription {
  static constexpr std::uint32_t isFloat = 1; // bit of formatFlags

  double sampleRate = 0; // Hz
  std::uint32_t formatFlags = 0;
  std::uint32_t bitsPerChannel = 0;
  std::uint32_t channelsPerFrame = 0;

  bool operator==(const AudioStreamBasicDescription&) const = default;
};

// Names a property of an object: its selector, its scope, and a qualifier such as a process id.
struct AudioPropertyAddress {
  std::uint32_t selector = 0;
  std::uint32_t scope = scopes::global;
  std::optional<std::int32_t> qualifier = std::nullopt;
};

// A property's value: a number, a text, an object list or a stream format; empty if the object has the
// property without a value (a null text).
using AudioPropertyValue = std::variant<std::monostate, std::uint32_t, std::int32_t, std::string,
                                        std::vector<AudioObjectID>, AudioStreamBasicDescription>;

// The descriptions of tap and aggregate device hold every setting that the callers make. The Linux adapter
// reads `kind`, `processes` and `uuid` of a tap, and `subdevices` and the taps' `uid` of an aggregate device.
// The others ask for what a tap is there in any case: seen by this program alone, audible, started with its
// device, on the clock of the graph.
struct TapDescription {
  enum class Kind {
    // The listed processes, mixed, with every stream that they open.
    monoMixdownOfProcesses,
    // Every process but the listed ones; the list may be empty. This program is always left out: it may have
    // no
    // object to list when the tap is made, and play later.
    monoGlobalTapButExcludeProcesses,
  };
  enum class MuteBehavior { unmuted = 0 }; // the tapped sound stays audible

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

// The sound server's objects. Main thread; reads may come from any thread. A read answers from a mirror
// without waiting for the server; only the first one waits, for a bounded time, until the server is
// connected.
//
// A process object stands for a process with all its streams and connections. Its id is not used for another
// process while the program runs.
class AudioHardware {
 public:
  virtual ~AudioHardware() = default;

  // This program's own process id, as `selectors::processID` gives it.
  [[nodiscard]] virtual std::int32_t processIdentifier() const = 0;
  [[nodiscard]] virtual OSResult<AudioPropertyValue> property(AudioObjectID object,
                                                              const AudioPropertyAddress& address) const = 0;

  // Throws PlatformError, worded for people, without a sound server.
  virtual OSResult<AudioObjectID> createProcessTap(const TapDescription& description) = 0;
  virtual OSStatus destroyProcessTap(AudioObjectID tap) = 0;
  virtual OSResult<AudioObjectID> createAggregateDevice(const AggregateDescription& description) = 0;
  virtual OSStatus destroyAggregateDevice(AudioObjectID device) = 0;
  // The block runs only between `startDevice` and `stopDevice`, while a tapped process plays.
  virtual OSResult<IOProcID> createIOProc(AudioObjectID device, IOBlock block) = 0;
  // Throws as `createProcessTap` does.
  virtual OSStatus startDevice(AudioObjectID device, IOProcID proc) = 0;
  // No IO block runs once it has returned.
  virtual OSStatus stopDevice(AudioObjectID device, IOProcID proc) = 0;
  // The block is destroyed when it returns.
  virtual OSStatus destroyIOProc(AudioObjectID device, IOProcID proc) = 0;
};

} // namespace tolvera::platform
