#pragma once

#include "TolveraService/Models/ModelCatalogue.h"

#include <atomic>
#include <filesystem>
#include <stop_token>
#include <thread>

namespace tolvera::service {

class DesktopNotification;

// Tells the user which model is missing, once a login, by a notification of the desktop that offers to
// install it. Nothing is fetched until the user accepts. Without a desktop it prints the command.
class ModelOffer {
 public:
  // Begins at its first call; the rest happens on a thread of its own. The destructor ends it, which takes a
  // second, or as long as the desktop takes to answer. One thread.
  void make(const Model& model);
  // True while a model is fetched. Any thread.
  [[nodiscard]] bool isInstalling() const { return isInstalling_; }

 private:
  void run(const std::stop_token& stop, const Model& model);
  // False if it failed, which is told, or was stopped.
  bool install(const std::stop_token& stop, const Model& model, DesktopNotification& notification);

  std::atomic<bool> isInstalling_ = false;
  std::jthread thread_; // last: it ends before what it uses
};

} // namespace tolvera::service
