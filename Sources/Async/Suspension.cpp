#include "Async/Suspension.h"

namespace tolvera::detail {

void Suspension::resume() {
  std::unique_ptr<ParkedCoroutine> taken;
  {
    std::scoped_lock lock(mutex);
    taken = std::move(parked);
  }
  if (taken) taken->resume();
}

} // namespace tolvera::detail
