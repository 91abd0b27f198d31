#pragma once

namespace tolvera::test {

// A desktop's tray as programs see it on the session bus, with room for icons and a list of them. Runs until
// it is killed.
int runNotifierWatcher();

} // namespace tolvera::test
