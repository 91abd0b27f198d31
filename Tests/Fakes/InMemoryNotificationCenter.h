#pragma once

#include "Platform/NotificationCenter.h"

#include <cstddef>
#include <iterator>
#include <list>
#include <utility>

namespace tolvera::test {

// A notification center in which the test posts. It outlives its registrations. One thread.
class InMemoryNotificationCenter final : public platform::NotificationCenter {
 public:
  // Calls the observers of `name` in the order in which they came. One of them may end its own observation.
  void post(std::string_view name) {
    for (auto next = observers_.begin(); next != observers_.end();) {
      const auto observer = next++;
      if (observer->name != name) continue;
      const auto block = observer->block; // survives the observer's end
      block();
    }
  }
  [[nodiscard]] std::size_t observers() const { return observers_.size(); }

  std::unique_ptr<Registration> addObserver(std::string_view name, std::function<void()> block) override {
    observers_.push_back({std::string(name), std::move(block)});
    return std::make_unique<Entry>(observers_, std::prev(observers_.end()));
  }

 private:
  struct Observer {
    std::string name;
    std::function<void()> block;
  };
  class Entry final : public Registration {
   public:
    Entry(std::list<Observer>& observers, std::list<Observer>::iterator position)
        : observers_(observers), position_(position) {}
    ~Entry() override { observers_.erase(position_); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

   private:
    std::list<Observer>& observers_;
    std::list<Observer>::iterator position_;
  };

  std::list<Observer> observers_;
};

} // namespace tolvera::test
