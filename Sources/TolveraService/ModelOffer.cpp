#include "TolveraService/ModelOffer.h"

#include "TolveraService/DesktopNotification.h"
#include "TolveraService/Http/TextLanguage.h"
#include "TolveraService/Models/ModelDownload.h"
#include "TolveraService/Models/ModelStore.h"

#include "Async/Log.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace tolvera::service {

namespace {

using Text = DesktopNotification::Text;

// The language of the programs, by the environment.
TextLanguage language() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    const std::string_view name(value);
    return languageNamed(name.substr(0, name.find_first_of("_.@"))).value_or(TextLanguage::english);
  }
  return TextLanguage::english;
}

bool isChinese() { return language() == TextLanguage::chinese; }

std::string megabytes(std::uint64_t bytes) {
  return std::to_string(std::lround(static_cast<double>(bytes) / 1e6));
}

// "MIT License"
std::string licenceOf(const Model& model) { return model.licence.substr(0, model.licence.find('\n')); }

std::string action() { return isChinese() ? "安装" : "Install"; }

Text offer(const Model& model) {
  const std::string size = megabytes(model.size) + " MB";
  if (isChinese())
    return {"语音识别模型尚未安装",
            "没有它，托维拉最多能听懂简单的英语。需要下载 " + size + "，许可证：" + licenceOf(model) + "。",
            action()};
  return {"The model for speech recognition is missing",
          "Without it Tolvera understands simple English at best. It is a download of " + size +
              ", under the " + licenceOf(model) + ".",
          action()};
}

Text underWay(const Progress& progress) {
  const auto done = static_cast<double>(progress.done) / static_cast<double>(progress.size);
  const std::string come = megabytes(progress.done);
  const std::string all = megabytes(progress.size);
  const int percent = static_cast<int>(done * 100);
  if (isChinese()) return {"正在安装语音识别模型", "已下载 " + come + " MB，共 " + all + " MB", {}, percent};
  return {"The model for speech recognition is being installed", come + " of " + all + " MB", {}, percent};
}

Text ready() {
  if (isChinese()) return {"已就绪", "语音识别模型已安装，下一次开始翻译时使用。"};
  return {"Ready", "The model for speech recognition is installed. The next run uses it."};
}

Text failure(const std::string& reason) {
  if (isChinese()) return {"语音识别模型未能安装", reason, action()};
  return {"The model for speech recognition was not installed", reason, action()};
}

// Its presence says that the offer was made. It lives as long as the login; empty where logins leave no
// trace.
std::filesystem::path note() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || runtime[0] != '/') return {};
  return std::filesystem::path(runtime) / "tolvera/model-offered";
}

void printCommand(const Model& model) {
  std::fprintf(stderr,
               "tolvera-service: people are understood once a model is installed (%s MB, %s): "
               "tolvera-service models install %s\n",
               megabytes(model.size).c_str(), licenceOf(model).c_str(), model.name.c_str());
}

} // namespace

void ModelOffer::make(const Model& model) {
  if (thread_.joinable()) return;
  thread_ = std::jthread([this, model](const std::stop_token& stop) {
    try {
      run(stop, model);
    } catch (const std::exception& error) {
      log::trace(log::Category::service, "no notification: ", error.what());
      printCommand(model);
    }
  });
}

void ModelOffer::run(const std::stop_token& stop, const Model& model) {
  DesktopNotification notification;
  const std::filesystem::path noted = note();
  std::error_code ignored;
  if (!noted.empty() && std::filesystem::exists(noted, ignored)) return;
  notification.show(offer(model));
  std::ofstream(noted).put('\n');
  bool isInstalled = false;
  while (!isInstalled && notification.wait(stop) == DesktopNotification::Answer::action)
    isInstalled = install(stop, model, notification);
  if (isInstalled) notification.wait(stop); // some desktops take it away with the connection
  if (isInstalled || !stop.stop_requested()) return;
  // A button with no service behind it does nothing. The next start offers it again.
  notification.close();
  std::filesystem::remove(noted, ignored);
}

bool ModelOffer::install(const std::stop_token& stop, const Model& model, DesktopNotification& notification) {
  using Clock = std::chrono::steady_clock;
  Clock::time_point next;
  const auto report = [&](const Progress& progress) {
    if (Clock::now() < next || notification.isClosed()) return;
    notification.show(underWay(progress));
    next = Clock::now() + std::chrono::seconds(1);
  };
  struct Installing {
    std::atomic<bool>& flag;
    explicit Installing(std::atomic<bool>& itsFlag) : flag(itsFlag) { flag = true; }
    ~Installing() { flag = false; }
  };
  const Installing installing(isInstalling_);
  try {
    notification.show(underWay({0, model.size, 0}));
    const bool isThere = ModelStore::isInstalled(model);
    if (!isThere && !downloadModel(model, report, [&stop] { return stop.stop_requested(); })) return false;
  } catch (const std::exception& error) {
    log::warn(log::Category::service, "the model was not installed: ", error.what());
    notification.show(failure(error.what()));
    return false;
  }
  notification.show(ready());
  return true;
}

} // namespace tolvera::service
