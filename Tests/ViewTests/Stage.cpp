#include "ViewTests/Stage.h"

#include "Tolvera/Views/Views.h"

#include <QFile>
#include <QJsonDocument>
#include <QKeySequence>

#include <map>
#include <stdexcept>

namespace tolvera::test {

namespace {

using S = Stage&;
using W = const QString&; // the words behind the verb

std::string first(W words) { return words.section(' ', 0, 0).toStdString(); }
std::string rest(W words) { return words.section(' ', 1).toStdString(); }
QString left(W words) { return words.section(" = ", 0, 0); }
QString right(W words) { return words.section(" = ", 1); }

void expect(W found, W wanted) {
  if (found != wanted) throw std::runtime_error("found: " + found.toStdString());
}

void pressTab(S s, W name) {
  s.host->press(Qt::Key_Tab);
  expect(s.host->focused(), name);
}

const std::map<QString, void (*)(S, W)> verbs{
    {"account", [](S s, W w) { s.model.account(std::stod(first(w)), w.contains("signed-in")); }},
    {"reply", [](S s, W w) { s.model.in().network.reply(first(w), 200, rest(w)); }},
    {"balance", [](S s, W w) { s.model.balance(w.toDouble()); }},
    {"starting", [](S s, W) { s.model.starting(); }},
    {"connecting", [](S s, W) { s.model.connecting(); }},
    {"live", [](S s, W) { s.model.live(); }},
    {"reconnecting", [](S s, W) { s.model.reconnecting(); }},
    {"fail", [](S s, W w) { s.model.fail(w.toStdString()); }},
    {"silence", [](S s, W) { s.model.beSilent(); }},
    {"goodbye", [](S s, W) { s.model.in().loop.advance(std::chrono::seconds(10)); }},
    {"source", [](S s, W w) { s.model.source(w.toStdString()); }},
    {"finish", [](S s, W w) { s.model.finish(w.toStdString()); }},
    {"translation", [](S s, W w) { s.model.translation(left(w).toStdString(), right(w).toStdString()); }},
    {"recite", // so many times these words
     [](S s, W w) {
       s.model.translation(QString(w.section(' ', 1)).repeated(w.section(' ', 0, 0).toInt()).toStdString());
     }},
    {"drag", // the only scroll bar, by so many pixels
     [](S s, W w) { s.host->dragScrollBar(w.toInt()); }},
    {"app", [](S s, W w) { s.model.addApp(w.toStdString(), w.toStdString()); }},
    {"playing", [](S s, W w) { s.model.addApp(w.toStdString(), w.toStdString(), true); }},
    {"speaker", [](S s, W) { s.model.playThroughSpeaker(true); }},
    {"everything", [](S s, W) { s.model.settings().captureEverything(), s.model.app().refreshApps(); }},
    {"choose", [](S s, W w) { s.model.settings().captureApp(w, w); }},
    {"settings", [](S s, W) { s.model.app().setTab(AppState::Tab::settings); }},
    {"set", [](S s, W w) { s.model.settings().setProperty(first(w).c_str(), w.section(' ', 1)); }},
    {"hover", [](S s, W) { s.host->root().setProperty("hovering", true); }},
    {"click", [](S s, W w) { s.host->click(w); }},
    {"type",
     [](S s, W w) {
       for (const auto& letter : w) s.host->press(Qt::Key_unknown, letter);
     }},
    {"press", [](S s, W w) { s.host->press(QKeySequence(w)[0].key()); }},
    {"tab", pressTab}, // to what has this name
    {"see", [](S s, W w) { expect(s.host->texts().contains(w) ? w : s.host->texts().join('|'), w); }},
    {"miss", [](S s, W w) { expect(s.host->texts().contains(w) ? w : "", ""); }},
    {"above", [](S s, W w) { expect(s.host->isAbove(left(w), right(w)) ? "" : "not above", ""); }},
    {"texts", [](S s, W w) { expect(s.host->texts().join(" / "), w); }},
    {"value", [](S s, W w) { expect(s.host->valueOf(left(w)), right(w)); }},
    {"setting",
     [](S s, W w) { expect(s.model.settings().property(left(w).toLatin1()).toString(), right(w)); }},
    {"opened", [](S s, W w) { expect(s.model.in().workspace.opened.at(0).c_str(), w); }},
    {"requests",
     [](S s, W w) {
       expect(QString::number(s.model.in().network.requestCount(left(w).toStdString())), right(w));
     }},
};

} // namespace

const QJsonObject& allScenes() {
  static const auto all = [] {
    QFile file(TOLVERA_SCENES);
    if (!file.open(QIODevice::ReadOnly)) throw std::runtime_error("cannot read " TOLVERA_SCENES);
    return QJsonDocument::fromJson(file.readAll()).object();
  }();
  return all;
}

Stage::Stage(const QJsonObject& scene, bool isChinese)
    : chinese(isChinese), locale(chinese ? "zh_CN" : "en_US") {
  model.settings().setUILanguage(chinese ? UILanguage::chinese : UILanguage::english);
  const auto view = scene["view"].toString();
  const auto* const address = view == "onboarding" ? Views::onboardingView
                              : view == "caption"  ? Views::captionView
                                                   : Views::mainView;
  const auto size = scene["size"].toArray(view == "onboarding" ? QJsonArray{-1, -1} : QJsonArray{660, 620});
  host = std::make_unique<ViewHost>(model, locale, address, QSize(size[0].toInt(), size[1].toInt()));
  play(scene["steps"].toArray());
}

QString Stage::text(const QJsonValue& value) const {
  return (value.isArray() ? value.toArray()[chinese ? 0 : 1] : value).toString();
}

void Stage::play(const QJsonArray& steps) {
  for (const auto& step : steps) {
    const auto line = text(step);
    const auto series = allScenes()["steps"][line];
    if (series.isArray()) {
      play(series.toArray());
      continue;
    }
    try {
      verbs.at(line.section(' ', 0, 0))(*this, line.section(' ', 1));
    } catch (const std::exception& error) {
      throw std::runtime_error(line.toStdString() + ": " + error.what());
    }
    host->grab();
  }
}

} // namespace tolvera::test
