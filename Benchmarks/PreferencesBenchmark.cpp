// The preferences under a panel that is dragged: a thousand assignments a second on the main thread. Prints
// how often the file was written, how long an assignment took at worst, and how soon a single one is on disk.
//
//   PreferencesBenchmark [SECONDS]

#include "Quantile.h"

#include "Harness/TemporaryDirectory.h"
#include "Platform/Linux/Desktop/JsonUserDefaults.h"

#include <poll.h>
#include <sys/inotify.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using tolvera::adapters::JsonUserDefaults;
using tolvera::bench::quantile;

namespace {

// Counts the files that are moved into place, as the store does it. The watch has both ends of each move,
// because the kernel merges equal events in a row.
int replacements(int watch) {
  int count = 0;
  alignas(inotify_event) char buffer[65536];
  pollfd ready{.fd = watch, .events = POLLIN, .revents = 0};
  while (::poll(&ready, 1, 0) > 0) {
    const ssize_t size = ::read(watch, buffer, sizeof buffer);
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      count += (event->mask & IN_MOVED_TO) != 0;
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }
  return count;
}

double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

double threadMilliseconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  const tolvera::test::TemporaryDirectory directory;
  const int watch = ::inotify_init1(IN_CLOEXEC);
  ::inotify_add_watch(watch, directory.path().c_str(), IN_MOVED_FROM | IN_MOVED_TO);

  std::vector<double> stalls; // ms, as all below
  std::vector<double> lags;
  int writes = 0;
  int worstSecond = 0;
  double processor = 0;
  double flushing = 0;
  {
    JsonUserDefaults store(directory / "preferences.json");
    const char* keys[] = {"overlayX", "overlayY", "overlayWidth", "overlayHeight"};
    const double processorBefore = threadMilliseconds();
    const auto began = Clock::now();
    for (int i = 0; i < seconds * 1000; ++i) {
      std::this_thread::sleep_until(began + i * 1ms);
      const auto before = Clock::now();
      store.setObject(keys[i % 4], i * 0.5);
      stalls.push_back(milliseconds(Clock::now() - before));
      if (i % 1000 == 999) {
        const int now = replacements(watch);
        worstSecond = std::max(worstSecond, now);
        writes += now;
      }
    }
    processor = threadMilliseconds() - processorBefore;
    const auto before = Clock::now();
    store.flush();
    flushing = milliseconds(Clock::now() - before);
    replacements(watch);
    for (int i = 0; i < 40; ++i) {
      std::this_thread::sleep_for(i * 5ms);
      const auto assigned = Clock::now();
      store.setObject("overlayX", -i - 1.0);
      pollfd ready{.fd = watch, .events = POLLIN, .revents = 0};
      ::poll(&ready, 1, 5000);
      lags.push_back(milliseconds(Clock::now() - assigned));
      store.flush();
      replacements(watch);
    }
  }
  ::close(watch);

  std::printf("assignments          %zu in %d s\n", stalls.size(), seconds);
  std::printf("file writes          %.1f per second, %d in the busiest\n", double(writes) / seconds,
              worstSecond);
  std::printf("assignment           median %.4f ms, p99 %.4f ms, longest %.4f ms\n", quantile(stalls, 0.5),
              quantile(stalls, 0.99), quantile(stalls, 1));
  std::printf("processor time       %.2f ms per second on the assigning thread\n", processor / seconds);
  std::printf("flush at the end     %.2f ms\n", flushing);
  std::printf("a single assignment  on disk after %.1f ms (median), %.1f ms (longest of %zu)\n",
              quantile(lags, 0.5), quantile(lags, 1), lags.size());
}
