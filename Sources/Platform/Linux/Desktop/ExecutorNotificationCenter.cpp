#include "Platform/Linux/Desktop/ExecutorNotificationCenter.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <utility>
#include <vector>

namespace tolvera::adapters {

struct ExecutorNotificationCenter::Observer {
  std::string name;
  std::function<void()> block;
  bool active = true;
};

// Used on the main thread alone.
struct ExecutorNotificationCenter::Observers {
  std::vector<std::shared_ptr<Observer>> entries;

  void notify(std::string_view name) const {
    // A block may add and end registrations, also its own.
    const auto now = entries;
    for (const auto& observer : now)
      if (observer->active && observer->name == name) observer->block();
  }
};

class ExecutorNotificationCenter::Entry final : public Registration {
 public:
  Entry(const std::shared_ptr<Observers>& observers, std::shared_ptr<Observer> observer)
      : observers_(observers), observer_(std::move(observer)) {}
  ~Entry() override {
    observer_->active = false;
    if (const auto observers = observers_.lock()) std::erase(observers->entries, observer_);
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

 private:
  std::weak_ptr<Observers> observers_;
  std::shared_ptr<Observer> observer_;
};

ExecutorNotificationCenter::ExecutorNotificationCenter(Executor main)
    : main_(std::move(main)), observers_(std::make_shared<Observers>()) {}
ExecutorNotificationCenter::~ExecutorNotificationCenter() = default;

std::unique_ptr<platform::NotificationCenter::Registration>
ExecutorNotificationCenter::addObserver(std::string_view name, std::function<void()> block) {
  auto observer = std::make_shared<Observer>(Observer{.name = std::string(name), .block = std::move(block)});
  observers_->entries.push_back(observer);
  return std::make_unique<Entry>(observers_, std::move(observer));
}

void ExecutorNotificationCenter::post(std::string_view name) { poster()(name); }

std::function<void(std::string_view)> ExecutorNotificationCenter::poster() const {
  return [main = main_, observers = std::weak_ptr(observers_)](std::string_view name) {
    boost::asio::post(main, [observers, name = std::string(name)] {
      if (const auto alive = observers.lock()) alive->notify(name);
    });
  };
}

} // namespace tolvera::adapters
