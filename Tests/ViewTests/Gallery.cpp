#include "Platform/Linux/Desktop/IcuLocale.h"
#include "ViewTests/Offscreen.h"
#include "ViewTests/ViewHost.h"

#include <QColor>
#include <QDir>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// Draws every view in every state that a user can tell apart, in both languages, light and dark.

namespace tolvera::test {
namespace {

using Kind = ViewHost::Kind;
using Prepare = std::function<void(InMemoryModel&)>;
using Act = std::function<void(ViewHost&)>;

struct Picture {
  const char* name;
  Kind kind;
  QSize size;
  Prepare prepare;
  Act act = [](ViewHost&) {};
  int textSize = 14;
};

constexpr QSize usual{660, 620};
constexpr QSize smallest{520, 568};
constexpr QSize tall{660, 860};
constexpr QSize panel{780, 132};

bool zh(InMemoryModel& model) { return model.settings().strings().zh; }

void speaks(InMemoryModel& model) {
  const bool chinese = zh(model);
  model.source(chinese ? "and then move on to the roadmap for the next three months"
                       : "und dann schauen wir auf den Plan für die nächsten drei Monate");
  model.finish(chinese ? "我们先来快速回顾一下上个季度的业绩。"
                       : "Let us first take a quick look at how the last quarter went.");
  model.translation(chinese ? "然后讨论未来三个月的" : "Then we will talk about the plan for",
                    chinese ? "规划" : " the next three months");
}

void speaksAtLength(InMemoryModel& model) {
  const bool chinese = zh(model);
  model.source(
      "and so we have to ask ourselves which of these three projects we want to carry on with, given that "
      "the budget for the coming year has been cut by almost a fifth and nobody knows yet when it returns");
  model.finish(
      chinese ? "所以我们得问问自己，这三个项目里到底要继续做哪一个，因为明年的预算几乎被砍掉了五分之一，"
                "而且没人知道什么时候能恢复。"
              : "So we have to ask ourselves which of these three projects we want to continue, since the "
                "budget of next year was cut by almost a fifth, and nobody knows when it will return.");
  model.translation(
      chinese ? "我个人的看法是，与其三个都做一半，不如把其中一个真正做完，然后拿着结果去和管理层谈，"
                "这样我们手里至少有一样能摆得上桌面的东西，"
              : "My own view is that instead of doing half of each of the three we had better finish one of "
                "them for good and then talk to the management with a result in our hands,",
      chinese ? "而不是三份没写完的报告和一堆没人愿意看的幻灯片。"
              : " rather than with three unfinished reports and a pile of slides that nobody wants to see.");
}

void addApps(InMemoryModel& model) {
  model.account(7500);
  model.addApp("org.example.browser", "Browser");
  model.addApp("org.example.player", "Player", true);
  model.addApp("org.example.meeting",
               "A Conference Tool With A Name That Does Not End Where One Expects It To");
}

void microphoneDub(InMemoryModel& model) {
  model.account(7500);
  model.settings().setSource("en");
  model.settings().setDub(true);
}

std::string microphoneFailure(InMemoryModel& model) {
  return zh(model) ? "没有麦克风权限。到「系统设置 → 隐私与安全性 → 麦克风」里打开托维拉，然后重新开始。"
                   : "No microphone permission. Enable Tolvera under System Settings, Privacy & Security, "
                     "Microphone, "
                     "then start again.";
}

// A run that failed with captions on screen keeps them; one without shows the form.
void failure(InMemoryModel& model, const std::string& message) {
  model.live();
  model.fail(message);
}

void openPicker(ViewHost& host, int index) {
  host.click(QAccessible::ComboBox, host.names(QAccessible::ComboBox).value(index));
}

std::vector<Picture> formPictures() {
  return {
      {"form-microphone", Kind::main, usual, [](auto& m) { m.account(7500); }},
      {"form-everything", Kind::main, usual,
       [](auto& m) {
         m.account(7500);
         m.settings().captureEverything();
       }},
      {"form-app", Kind::main, usual,
       [](auto& m) {
         m.account(7500);
         addApps(m);
         m.settings().captureApp("org.example.player", "Player");
       }},
      {"form-app-picker", Kind::main, usual,
       [](auto& m) {
         addApps(m);
         m.settings().captureApp("org.example.player", "Player");
       },
       [](auto& h) { openPicker(h, 0); }},
      {"form-app-gone", Kind::main, usual,
       [](auto& m) {
         addApps(m);
         m.settings().captureApp("org.example.gone", "Gone");
       }},
      {"form-dub-speaker", Kind::main, tall,
       [](auto& m) {
         microphoneDub(m);
         m.playThroughSpeaker(true);
       }},
      {"form-out-of-time", Kind::main, usual, [](auto& m) { m.account(0); }},
      {"form-balance-299", Kind::main, usual, [](auto& m) { m.account(299); }},
      {"form-dub", Kind::main, tall, microphoneDub},
      {"form-no-spoken-output", Kind::main, usual,
       [](auto& m) {
         m.account(100'000);
         m.settings().setTarget("yue");
       }},
      {"form-failed", Kind::main, usual, [](auto& m) { failure(m, "翻译服务出错 (upstream, 503)"); }},
      {"form-failed-microphone", Kind::main, smallest, [](auto& m) { failure(m, microphoneFailure(m)); }},
      {"form-smallest", Kind::main, smallest, microphoneDub},
      {"form-large-text", Kind::main, usual, microphoneDub, [](auto&) {}, 22},
      {"form-picker", Kind::main, usual, [](auto& m) { m.account(7500); }, [](auto& h) { openPicker(h, 1); }},
      {"form-picker-search", Kind::main, usual, [](auto& m) { m.account(7500); },
       [](auto& h) {
         openPicker(h, 0);
         h.type("po");
       }},
      {"form-buy", Kind::main, usual, [](auto& m) { m.account(7500); },
       [](auto& h) { h.click(QAccessible::Button, h.names(QAccessible::Button).last()); }},
      {"form-buy-signed-in", Kind::main, usual, [](auto& m) { m.account(7500, true); },
       [](auto& h) { h.click(QAccessible::Button, h.names(QAccessible::Button).last()); }},
      {"form-focus", Kind::main, usual, [](auto& m) { m.account(7500); },
       [](auto& h) {
         for (int i = 0; i < 5; ++i) h.press(Qt::Key_Tab);
       }},
  };
}

std::vector<Picture> livePictures() {
  return {
      {"live-starting", Kind::main, usual, [](auto& m) { m.starting(); }},
      {"live-connecting", Kind::main, usual, [](auto& m) { m.connecting(); }},
      {"live-listening", Kind::main, usual, [](auto& m) { m.live(); }},
      {"live-captions", Kind::main, usual,
       [](auto& m) {
         m.live();
         speaks(m);
       }},
      {"live-long", Kind::main, smallest,
       [](auto& m) {
         m.live();
         speaksAtLength(m);
       }},
      {"live-reconnecting", Kind::main, usual, [](auto& m) { m.reconnecting(); }},
      {"live-failed", Kind::main, smallest,
       [](auto& m) {
         m.live();
         speaks(m);
         m.fail(microphoneFailure(m));
       }},
      {"live-large-text", Kind::main, usual,
       [](auto& m) {
         m.live();
         speaksAtLength(m);
       },
       [](auto&) {}, 22},
  };
}

std::vector<Picture> settingsPictures() {
  const auto open = [](auto& m) { m.app().setTab(AppState::Tab::settings); };
  return {
      {"settings-signed-out", Kind::main, usual, open},
      {"settings-signed-in", Kind::main, usual,
       [open](auto& m) {
         open(m);
         m.account(0, true);
       }},
      {"settings-confirmation", Kind::main, usual,
       [open](auto& m) {
         open(m);
         m.account(7500, true);
       },
       [](auto& h) { h.click(QAccessible::Button, h.names(QAccessible::Button).value(0)); }},
      {"settings-large-text", Kind::main, smallest, open, [](auto&) {}, 22},
  };
}

std::vector<Picture> captionPictures() {
  const auto hover = [](ViewHost& h) {
    h.root().setProperty("hovering", true);
    h.settle();
  };
  const auto at = [](double seconds) {
    return [seconds](InMemoryModel& m) {
      m.live();
      speaks(m);
      m.balance(seconds);
    };
  };
  return {
      {"caption-connecting", Kind::caption, panel, [](auto& m) { m.connecting(); }},
      {"caption-listening", Kind::caption, panel, [](auto& m) { m.live(); }},
      {"caption-captions", Kind::caption, panel, at(3600)},
      {"caption-balance-1799", Kind::caption, panel, at(1799)},
      {"caption-balance-599", Kind::caption, panel, at(599)},
      {"caption-balance-119", Kind::caption, panel, at(119)},
      {"caption-pointed-at", Kind::caption, panel, at(742), hover},
      {"caption-without-source", Kind::caption, panel,
       [](auto& m) {
         m.settings().setShowSource(false);
         m.live();
         speaks(m);
       }},
      {"caption-long", Kind::caption, QSize(780, 170),
       [](auto& m) {
         m.live();
         speaksAtLength(m);
       }},
      {"caption-crowded", Kind::caption, panel,
       [](auto& m) {
         m.live();
         speaksAtLength(m);
       }},
      {"caption-crowded-by-large-text", Kind::caption, panel,
       [](auto& m) {
         m.settings().setOverlayFontSize(32);
         m.live();
         speaks(m);
       }},
      {"caption-smallest", Kind::caption, QSize(360, 72),
       [](auto& m) {
         m.live();
         speaksAtLength(m);
       }},
      {"caption-large-text", Kind::caption, QSize(1100, 260),
       [](auto& m) {
         m.settings().setOverlayFontSize(48);
         m.live();
         speaksAtLength(m);
       }},
      {"caption-reconnecting", Kind::caption, panel, [](auto& m) { m.reconnecting(); }},
      {"caption-failed", Kind::caption, panel,
       [](auto& m) {
         m.live();
         m.fail("broken");
       }},
      {"caption-empty", Kind::caption, panel, [](auto& m) { m.account(7500); }},
  };
}

std::vector<Picture> allPictures() {
  std::vector<Picture> all{
      {"onboarding", Kind::onboarding, {}, [](auto& m) { m.account(7500); }},
      {"onboarding-large-text", Kind::onboarding, {}, [](auto& m) { m.account(7500); }, [](auto&) {}, 20},
  };
  for (const auto& group : {formPictures(), livePictures(), settingsPictures(), captionPictures()}) {
    all.insert(all.end(), group.begin(), group.end());
  }
  return all;
}

// True if every text is whole and within the window.
bool draw(const Picture& picture, const QDir& folder, bool chinese, bool dark) {
  Offscreen::setDark(dark);
  Offscreen::setTextSize(picture.textSize);
  const adapters::IcuLocale locale(chinese ? "zh_CN" : "en_US");
  InMemoryModel model;
  model.settings().setUILanguage(chinese ? UILanguage::chinese : UILanguage::english);
  if (chinese) model.settings().setTarget("zh");
  picture.prepare(model);
  ViewHost host(model, locale, picture.kind, picture.size);
  // The panel is seen above something.
  if (picture.kind == Kind::caption)
    host.window().setColor(dark ? QColor(0x3A, 0x46, 0x58) : QColor(0xDC, 0xE4, 0xEC));
  picture.act(host);
  const auto image = host.grab();
  const auto name =
      QStringLiteral("%1-%2-%3.png").arg(picture.name, chinese ? "zh" : "en", dark ? "dark" : "light");
  if (!image.save(folder.filePath(name))) throw std::runtime_error("cannot write " + name.toStdString());
  const auto faults = host.faults();
  for (const auto& fault : faults) {
    std::fprintf(stderr, "%s: %s\n", qUtf8Printable(name), qUtf8Printable(fault));
  }
  return faults.isEmpty();
}

int run(int argc, char** argv) {
  if (argc < 2 || std::string_view(argv[1]) == "--help") {
    std::fputs("usage: tolvera-gallery FOLDER [WORD]\n\n"
               "Draws the views into FOLDER; with WORD, those whose name contains it.\n",
               argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  const Offscreen offscreen(argc, argv);
  const QDir folder(QString::fromLocal8Bit(argv[1]));
  if (!folder.mkpath(".")) {
    std::fprintf(stderr, "tolvera-gallery: cannot make %s\n", argv[1]);
    return 1;
  }
  const std::string word = argc > 2 ? argv[2] : "";
  int drawn = 0;
  bool whole = true;
  for (const auto& picture : allPictures()) {
    if (std::string_view(picture.name).find(word) == std::string_view::npos) continue;
    for (const bool chinese : {false, true}) {
      for (const bool dark : {false, true}) {
        whole = draw(picture, folder, chinese, dark) && whole;
        ++drawn;
      }
    }
  }
  std::printf("%d pictures in %s\n", drawn, argv[1]);
  return drawn > 0 && whole ? 0 : 1;
}

} // namespace
} // namespace tolvera::test

int main(int argc, char** argv) { return tolvera::test::run(argc, argv); }
