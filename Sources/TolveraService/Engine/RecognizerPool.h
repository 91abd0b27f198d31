#pragma once

#include "TolveraService/Engine/Recognizer.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

namespace tolvera::service {

// The decoders of the service, made ahead of their use: more than two streams do not keep up with speech on
// two cores. Owned by the server; any thread.
class RecognizerPool {
  struct State {
    std::mutex mutex;
    std::vector<std::unique_ptr<Recognizer>> idle;
    std::filesystem::path model;
  };

 public:
  // The right to use one decoder; it goes back when the lease ends. Outlives the pool.
  class Lease {
   public:
    Lease(Lease&&) = default;
    Lease& operator=(Lease&&) = default;
    ~Lease();
    Recognizer& operator*() const { return *recognizer_; }
    Recognizer* operator->() const { return recognizer_.get(); }
    // A new decoder goes back in place of this one. Making it takes most of a second.
    void spoil() noexcept;

   private:
    friend RecognizerPool;
    Lease(std::shared_ptr<State> state, std::unique_ptr<Recognizer> recognizer);
    std::shared_ptr<State> state_;
    std::unique_ptr<Recognizer> recognizer_;
  };

  // Makes `size` decoders at once. Throws what Recognizer throws.
  RecognizerPool(std::size_t size, const std::filesystem::path& model);

  // A free decoder; empty if there is none.
  [[nodiscard]] std::unique_ptr<Lease> lease();
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  std::size_t size_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace tolvera::service
