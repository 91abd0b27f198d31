#include "TolveraService/Engine/RecognizerPool.h"

#include <future>

namespace tolvera::service {

RecognizerPool::RecognizerPool(std::size_t size, const std::filesystem::path& model) : size_(size) {
  state_->model = model;
  std::vector<std::future<std::unique_ptr<Recognizer>>> others;
  const auto make = [model] { return std::make_unique<Recognizer>(model); };
  if (size > 0) state_->idle.push_back(make()); // alone: a missing model is told once
  for (std::size_t i = 1; i < size; ++i) others.push_back(std::async(std::launch::async, make));
  for (auto& other : others) state_->idle.push_back(other.get());
}

std::unique_ptr<RecognizerPool::Lease> RecognizerPool::lease() {
  std::scoped_lock lock(state_->mutex);
  if (state_->idle.empty()) return nullptr;
  std::unique_ptr<Recognizer> recognizer = std::move(state_->idle.back());
  state_->idle.pop_back();
  return std::unique_ptr<Lease>(new Lease(state_, std::move(recognizer)));
}

RecognizerPool::Lease::Lease(std::shared_ptr<State> state, std::unique_ptr<Recognizer> recognizer)
    : state_(std::move(state)), recognizer_(std::move(recognizer)) {}

void RecognizerPool::Lease::spoil() noexcept {
  try {
    recognizer_ = std::make_unique<Recognizer>(state_->model);
  } catch (const std::exception&) {
    // The next run fails like this one, and tries again.
  }
}

RecognizerPool::Lease::~Lease() {
  if (!recognizer_) return;
  std::scoped_lock lock(state_->mutex);
  state_->idle.push_back(std::move(recognizer_));
}

} // namespace tolvera::service
