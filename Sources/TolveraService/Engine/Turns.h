#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace tolvera::service {

// Lets only so many decodes run at once as the processors carry. The threads of a decode spin while they wait
// for each other, so one decode too many slows down all of them. Any thread.
class Turns {
 public:
  explicit Turns(std::size_t atOnce) : free_(atOnce) {}

  // One turn, given back by its end. Empty if the run was abandoned while it waited.
  class Turn {
   public:
    Turn(Turns& turns, const std::function<bool()>& abandoned);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    explicit operator bool() const { return taken_; }

   private:
    Turns& turns_;
    bool taken_ = false;
  };

  // True if a turn is free that no other run waits for.
  [[nodiscard]] bool isOneFree();

 private:
  std::mutex mutex_; // guards the following
  std::condition_variable freed_;
  std::size_t free_;
  std::size_t waiting_ = 0;
};

} // namespace tolvera::service
