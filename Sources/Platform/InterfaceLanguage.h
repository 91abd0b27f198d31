#pragma once

#include <atomic>
#include <string>

namespace tolvera::platform {

// The language of the program's texts, for the sentences that adapters write for people. The program sets it,
// adapters read it. Any thread.
class InterfaceLanguage {
 public:
  void setChinese(bool chinese) { chinese_ = chinese; }
  // The text of a pair that is in this language.
  [[nodiscard]] std::string pick(const char* chinese, const char* english) const {
    return chinese_ ? chinese : english;
  }

 private:
  std::atomic<bool> chinese_ = false;
};

} // namespace tolvera::platform
