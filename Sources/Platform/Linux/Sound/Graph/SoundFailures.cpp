#include "Platform/Linux/Sound/Graph/SoundFailures.h"

#include <cerrno>

namespace tolvera::adapters {

platform::PlatformError SoundFailures::noServer() const {
  return error(
      ECONNREFUSED, "声音服务（PipeWire）没有在运行。启动它，或者重新登录桌面，然后重新开始。",
      "The sound server (PipeWire) is not running. Start it, or log in to the desktop again, then start "
      "again.");
}

platform::PlatformError SoundFailures::serverGone() const {
  return error(ECONNRESET, "声音服务（PipeWire）中断了。等它重新运行，然后重新开始。",
               "The sound server (PipeWire) went away. Wait until it runs again, then start again.");
}

platform::PlatformError SoundFailures::noInput() const {
  if (hasMicrophoneSettings()) {
    return error(
        ENODEV, "没有接上麦克风。接上一个，或者在声音设置里选一个，然后重新开始。",
        "No microphone is plugged in. Plug one in, or choose one in the sound settings, then start again.");
  }
  return error(ENODEV, "没有可用的声音输入。接上一个，然后重新开始。",
               "There is no sound input. Plug one in, then start again.");
}

platform::PlatformError SoundFailures::error(int code, const char* chinese, const char* english) const {
  return {"PipeWire", code, language != nullptr ? language->pick(chinese, english) : english};
}

} // namespace tolvera::adapters
