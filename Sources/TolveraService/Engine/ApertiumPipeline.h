#pragma once

#include "TolveraService/Engine/ApertiumMode.h"

#include <sys/types.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The running programs of one translation mode, kept warm: started by the first line, started again
// after one of them dies. They take text through a pipe alone and die with the service, however it ends.
// Owned by ApertiumTranslator. Any thread may call; calls are served one at a time and block. The thread that
// calls has to live as long as the pipeline: the programs are killed when the thread that started them ends.
class ApertiumPipeline {
 public:
  explicit ApertiumPipeline(ApertiumStages stages) : stages_(std::move(stages)) {}
  ~ApertiumPipeline();
  ApertiumPipeline(const ApertiumPipeline&) = delete;
  ApertiumPipeline& operator=(const ApertiumPipeline&) = delete;

  // What the mode makes of one line, marks (`*`, `@`, `#`) included. A dead or stuck program costs one
  // restart and a second try; nothing if that fails as well.
  std::optional<std::string> translate(std::string_view line);

 private:
  std::optional<std::string> exchange(std::string_view line, std::chrono::milliseconds limit);
  bool start();
  void stop();

  const ApertiumStages stages_;
  std::mutex mutex_;
  std::vector<pid_t> processes_;
  int input_ = -1;
  int output_ = -1;
};

} // namespace tolvera::service
