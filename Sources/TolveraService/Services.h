#pragma once

#include "TolveraService/Accounts/AccountStore.h"
#include "TolveraService/Engine/CurrentEngine.h"
#include "TolveraService/Engine/Speech.h"
#include "TolveraService/Engine/Translator.h"
#include "TolveraService/Http/Connections.h"
#include "TolveraService/Http/Routes.h"

#include "Async/Clock.h"
#include "Async/Task.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tolvera::service {

class StreamConnection;

// What all connections of a server share. Owned by Server; it outlives the connections.
struct Services {
  AccountStore& accounts;
  Translator& translator;
  CurrentEngine& engine;
  Speech& speech;
  Routes& routes;
  Clock& clock;
  Executor blocking;                  // short calls that may wait for the disk
  Executor warming;                   // starts translation engines
  Executor listening;                 // one thread for each stream that can run
  std::chrono::milliseconds silence;  // after which a run gives its decoder to one that waits
  std::vector<std::string> hostNames; // the only values of Host that are answered
  Connections connections;            // network thread
  // The run of each account, network thread.
  std::map<std::int64_t, std::weak_ptr<StreamConnection>> runs;
  std::function<void()> onRun;    // called when a run is asked for, network thread
  std::function<void()> tellRuns; // called when a run has been added or has left, network thread
};

} // namespace tolvera::service
