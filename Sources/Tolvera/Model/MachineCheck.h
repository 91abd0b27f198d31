#pragma once

#include "Async/Task.h"
#include "Platform/MachineFacts.h"
#include "Platform/Platform.h"

#include <string>
#include <vector>

namespace tolvera {

// One thing that the program needs or uses.
struct CheckedThing {
  std::string name;
  bool works = false; // false only for what a run cannot do without
  std::string text;   // what was found, and the cure for what was not
};

// What works on this machine and what does not, in the order in which a person would look. It asks the
// service of the preferences, and makes no account there. Main thread; never throws. The platform outlives
// the task.
Task<std::vector<CheckedThing>> checkMachine(platform::Platform& platform, platform::MachineFacts facts);
// Opens a complete trace with the same lines.
Task<void> traceMachine(platform::Platform& platform, platform::MachineFacts facts);

} // namespace tolvera
