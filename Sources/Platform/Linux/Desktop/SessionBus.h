#pragma once

// The user's message bus, as far as it tells what a desktop offers. Any thread.
namespace tolvera::adapters::SessionBus {

// True if somebody owns the name or would be started for it. Waits up to a second.
[[nodiscard]] bool offers(const char* name);

} // namespace tolvera::adapters::SessionBus
