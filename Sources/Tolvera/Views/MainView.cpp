#include "Tolvera/Views/MainView.h"

#include "TolveraCore/Languages.h"

namespace tolvera {

QString MainViewRules::buttonTitle(const Strings& strings, double secondsLeft) {
  return hasTime(secondsLeft) ? strings.startTranslating() : strings.pick("时长已用完", "Out of time");
}

QString MainViewRules::startObstacle(const Strings& strings, double secondsLeft, bool knowsAccount) {
  if (hasTime(secondsLeft)) return {};
  return knowsAccount
             ? strings.pick("购买时长后就能继续。", "Buy more time to go on.")
             : strings.pick("翻译服务没有响应。启动它，再回到这个窗口。",
                            "The translation service does not answer. Start it, then come back to this "
                            "window.");
}

QString MainViewRules::swapObstacle(const Strings& strings, const QString& source, bool canSwap) {
  if (canSwap) return {};
  return source == "auto" ? strings.pick("先选好说话的语言", "Choose the spoken language first")
                          : strings.pick("两种语言相同", "Both languages are the same");
}

QString MainViewRules::statusText(const Strings& strings, const Phase& phase) {
  switch (phase.kind()) {
  case Phase::Kind::idle:
    return strings.pick("未开始", "Not running");
  case Phase::Kind::starting:
    return strings.pick("正在启动…", "Starting…");
  case Phase::Kind::connecting:
    return strings.connecting();
  case Phase::Kind::live:
    return strings.translating();
  case Phase::Kind::reconnecting:
    return strings.reconnecting();
  case Phase::Kind::failed:
    break;
  }
  return brief(phase.message());
}

QString MainViewRules::brief(const QString& message) {
  constexpr qsizetype longest = 1000;
  return message.size() > longest ? message.left(longest) + QChar(0x2026) : message;
}

bool MainViewRules::offersSystemSettings(const QString& failure) {
  return failure.contains("麦克风") || failure.toLower().contains("microphone");
}

bool MainViewRules::canSpeak(const QString& target) { return Languages::canDub(target.toStdString()); }

} // namespace tolvera
