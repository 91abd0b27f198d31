#include "Platform/Linux/Network/FileWatch.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <sys/inotify.h>

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace tolvera::adapters {

struct FileWatch::State : std::enable_shared_from_this<State> {
  State(const Executor& executor, int descriptor) : stream(executor, descriptor) {}

  // The folder may be gone and come back, which ends its watch.
  void watchFolders() {
    const auto folder = file.parent_path();
    ::inotify_add_watch(stream.native_handle(), folder.parent_path().c_str(), IN_CREATE | IN_MOVED_TO);
    ::inotify_add_watch(stream.native_handle(), folder.c_str(), IN_MOVED_TO);
  }

  void read() {
    stream.async_read_some(boost::asio::buffer(buffer),
                           [self = shared_from_this()](const auto& error, std::size_t size) {
                             if (error) return;
                             self->handle(size);
                             self->read();
                           });
  }

  void handle(std::size_t size) {
    bool hasAppeared = false;
    for (std::size_t at = 0; at + sizeof(inotify_event) <= size;) {
      inotify_event event{};
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const std::string_view name(event.len > 0 ? buffer.data() + at + sizeof event : "");
      if (name == file.parent_path().filename().native()) {
        watchFolders();
        // The file may have come before the watch.
        hasAppeared = hasAppeared || std::filesystem::exists(file);
      }
      hasAppeared = hasAppeared || name == file.filename().native();
      at += sizeof event + event.len;
    }
    if (hasAppeared) appeared();
  }

  boost::asio::posix::stream_descriptor stream;
  std::filesystem::path file;
  std::function<void()> appeared;
  alignas(inotify_event) std::array<char, 4096> buffer{};
};

FileWatch::FileWatch(const Executor& executor, const std::filesystem::path& file,
                     std::function<void()> appeared) {
  if (file.empty()) return;
  const int descriptor = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (descriptor < 0) return;
  state_ = std::make_shared<State>(executor, descriptor);
  state_->file = file;
  state_->appeared = std::move(appeared);
  state_->watchFolders();
  state_->read();
}

FileWatch::~FileWatch() {
  boost::system::error_code error;
  if (state_) state_->stream.close(error);
}

} // namespace tolvera::adapters
