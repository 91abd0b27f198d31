#include "Async/CoreDumps.h"
#include "Async/Log.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Tolvera/App/QtMainExecutor.h"
#include "Tolvera/App/TolveraApp.h"
#include "Tolvera/App/UnixSignals.h"
#include "Tolvera/Desktop/SingleInstance.h"
#include "Tolvera/Model/MachineCheck.h"

#include <QApplication>

#include <cstdio>
#include <cstdlib>

namespace tolvera {

namespace {

int run(SingleInstance& instance) {
  QtMainExecutor executor;
  adapters::LinuxPlatform platform(executor.executor());
  int status = 0;
  {
    TolveraApp app(platform.platform());
    const UnixSignals signals;
    auto& delegate = app.delegate();
    QObject::connect(&signals, &UnixSignals::received, &delegate, &AppDelegate::terminate);
    QObject::connect(&instance, &SingleInstance::superseded, &delegate, &AppDelegate::terminate);
    QObject::connect(&instance, &SingleInstance::activated, &delegate, &AppDelegate::openMainWindow);
    QObject::connect(&instance, &SingleInstance::settingsRequested, &delegate,
                     [&app] { app.openSettings(); });
    QObject::connect(&delegate, &AppDelegate::terminationBegan, &instance, &SingleInstance::beginQuitting);
    app.launch();
    const auto trace = log::isComplete() ? spawn(executor.executor(), "check",
                                                 traceMachine(platform.platform(), platform.machineFacts()))
                                         : TaskHandle();
    status = QApplication::exec();
    // Tasks that are still under way end here, while all that they use is there.
    executor.stop();
    platform.stop();
    executor.discard();
  }
  return status;
}

} // namespace
} // namespace tolvera

int main(int argc, char** argv) {
  tolvera::writeNoCoreDumps();
  if (!tolvera::TolveraApp::prepareProcess()) {
    std::fputs("tolvera: there is no display here. Without one, tolvera-terminal does the same.\n", stderr);
    return EXIT_FAILURE;
  }
  const QApplication application(argc, argv);
  tolvera::TolveraApp::prepareApplication();
  tolvera::SingleInstance instance;
  if (instance.claim() == tolvera::SingleInstance::Role::later) return 0;
  return tolvera::run(instance);
}
