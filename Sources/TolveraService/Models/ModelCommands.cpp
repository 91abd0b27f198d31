#include "TolveraService/Models/ModelCommands.h"

#include "TolveraService/Models/ModelCatalogue.h"
#include "TolveraService/Models/ModelDownload.h"
#include "TolveraService/Models/ModelStore.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

namespace tolvera::service {

namespace {

constexpr const char* usage = "usage: tolvera-service models list\n"
                              "       tolvera-service models install NAME [--from FILE]\n"
                              "       tolvera-service models verify [NAME]\n"
                              "       tolvera-service models remove NAME\n"
                              "       tolvera-service models licence NAME\n";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

volatile std::sig_atomic_t signalled = 0;

double megabytes(std::uint64_t bytes) { return static_cast<double>(bytes) / 1e6; }

const Model& named(const std::vector<Model>& models, std::string_view name) {
  const auto found = std::ranges::find(models, name, &Model::name);
  if (found == models.end())
    throw std::runtime_error("there is no model " + std::string(name) + "; see: tolvera-service models list");
  return *found;
}

int list(const std::vector<Model>& models) {
  for (const Model& model : models) {
    const auto path = ModelStore::find(model);
    std::printf("%-20s %7.1f MB  %s; memory: %s; %s\n", model.name.c_str(), megabytes(model.size),
                model.about.c_str(), model.memory.c_str(), path ? path->c_str() : "not installed");
  }
  return 0;
}

// One line that is written over again; nothing where there is no terminal.
void showProgress(const Progress& progress) {
  using Clock = std::chrono::steady_clock;
  static Clock::time_point next;
  const auto now = Clock::now();
  if (isatty(STDERR_FILENO) == 0 || now < next) return;
  next = now + std::chrono::milliseconds(200);
  std::fprintf(stderr, "\r\033[K%.1f of %.1f MB, %.1f MB/s", megabytes(progress.done),
               megabytes(progress.size), progress.rate / 1e6);
  if (progress.rate > 0)
    std::fprintf(stderr, ", %.0f s left", static_cast<double>(progress.size - progress.done) / progress.rate);
}

int install(const Model& model, std::string_view file) {
  if (ModelStore::isInstalled(model)) {
    std::printf("%s is installed already: %s\n", model.name.c_str(), ModelStore::find(model)->c_str());
    return 0;
  }
  if (!file.empty()) {
    importModel(model, file);
  } else {
    const bool whole = downloadModel(model, showProgress, [] { return signalled != 0; });
    if (isatty(STDERR_FILENO) != 0) std::fputc('\n', stderr);
    if (!whole) {
      std::fputs("tolvera-service: interrupted; the next try goes on where this one ended\n", stderr);
      return 130;
    }
  }
  std::printf("%s is installed: %s\n", model.name.c_str(), (ModelStore::ownDirectory() / model.file).c_str());
  return 0;
}

// Reads every byte: the note of an earlier check is not believed here.
bool verifyOne(const Model& model, const std::filesystem::path& path) {
  const bool isGood = sha256OfFile(path) == model.sha256;
  std::printf("%s: %s\n", model.name.c_str(),
              isGood ? "good"
                     : ("damaged; mend it with: tolvera-service models install " + model.name).c_str());
  return isGood;
}

int verify(const std::vector<Model>& models, std::string_view name) {
  bool allGood = true;
  if (!name.empty()) {
    const Model& model = named(models, name);
    const auto path = ModelStore::find(model);
    if (!path) throw std::runtime_error(model.name + " is not installed");
    allGood = verifyOne(model, *path);
  } else {
    for (const Model& model : models)
      if (const auto path = ModelStore::find(model)) allGood = verifyOne(model, *path) && allGood;
  }
  return allGood ? 0 : 1;
}

int remove(const Model& model) {
  if (!ModelStore::remove(model))
    throw std::runtime_error(model.name + " is not among your own models, so it was not removed");
  std::printf("%s is removed\n", model.name.c_str());
  return 0;
}

int run(const std::vector<std::string_view>& arguments) {
  const auto argument = [&](std::size_t index) {
    return index < arguments.size() ? arguments[index] : std::string_view();
  };
  const std::string_view verb = argument(0);
  const std::size_t count = arguments.size();
  const std::vector<Model> models = loadModelCatalogue();
  if (verb == "list" && count == 1) return list(models);
  if (verb == "install" && count == 2) return install(named(models, argument(1)), {});
  if (verb == "install" && count == 4 && argument(2) == "--from")
    return install(named(models, argument(1)), argument(3));
  if (verb == "verify" && count <= 2) return verify(models, argument(1));
  if (verb == "remove" && count == 2) return remove(named(models, argument(1)));
  if (verb == "licence" && count == 2) {
    std::puts(named(models, argument(1)).licence.c_str());
    return 0;
  }
  throw UsageError("this is not a command for models");
}

} // namespace

int runModelCommand(const std::vector<std::string_view>& arguments) {
  for (const int number : {SIGINT, SIGTERM}) std::signal(number, [](int) { signalled = 1; });
  try {
    return run(arguments);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "tolvera-service: %s\n%s", error.what(), usage);
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tolvera-service: %s\n", error.what());
    return 1;
  }
}

} // namespace tolvera::service
