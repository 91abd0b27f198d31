// How soon a caption is seen, and what an hour of captions leaves behind: the caption panel and the main
// window of a live run, drawn in software, on DISPLAY if there is one and else on no screen at all.
//
//   WindowBenchmark [SECONDS [MINUTES]]      20 captions a second for 15 s, then 60 minutes fast-forwarded

#include "ProcessUse.h"
#include "Quantile.h"

#include "Fakes/InMemoryModel.h"
#include "Tolvera/App/MainWindow.h"
#include "Tolvera/App/QuickCaptionWindow.h"
#include "Tolvera/App/TolveraApp.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/Views.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QQmlEngine>
#include <QQuickItem>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using namespace tolvera;
using bench::quantile;
using Steady = std::chrono::steady_clock;

namespace {

constexpr auto interval = std::chrono::milliseconds(50);  // between two captions
constexpr auto patience = std::chrono::milliseconds(500); // for a frame
constexpr int sentencesPerMinute = 12;
constexpr int wordsPerSentence = 12; // one caption each

const std::array<std::string, 24> vocabulary = {"la",     "casa",  "tiene", "un",      "jardín", "grande",
                                                "donde",  "los",   "niños", "juegan",  "con",    "sus",
                                                "muy",    "buena", "y",     "mañana",  "vamos",  "todos",
                                                "juntos", "al",    "gran",  "mercado", "nuevo",  "hoy"};

// The first `words` words of a sentence; every sentence is another one.
std::string sentence(int number, int words) {
  std::string text;
  for (int i = 0; i < words; ++i) {
    const auto index = static_cast<std::size_t>(number * 7 + i * 5) % vocabulary.size();
    if (!text.empty()) text += ' ';
    text += vocabulary[index];
  }
  return text;
}

int itemsBelow(const QQuickItem& item) {
  int count = 1;
  for (const auto* child : item.childItems()) count += itemsBelow(*child);
  return count;
}

// The windows of a live run, and when they drew last.
class Windows {
 public:
  Windows() {
    Views::prepareEngine(engine_);
    model_.live();
    main_.show();
    controller_.show(model_.app());
    for (auto* window : QGuiApplication::topLevelWindows()) {
      if (auto* panel = qobject_cast<QuickCaptionPanel*>(window)) panel_ = panel;
    }
    watch(*panel_, panelFrame_);
    watch(main_, mainFrame_);
    pumpFor(std::chrono::seconds(1));
  }
  ~Windows() { controller_.close(); }

  test::InMemoryModel& model() { return model_; }

  // Milliseconds from a caption event to the frame that shows it in the panel and in the main window.
  std::array<double, 2> show(const std::function<void()>& caption) {
    const auto began = Steady::now();
    caption();
    while ((panelFrame_ < began || mainFrame_ < began) && Steady::now() - began < patience) pump();
    const auto since = [began](Steady::time_point frame) {
      const auto end = frame < began ? began + patience : frame;
      return std::chrono::duration<double, std::milli>(end - began).count();
    };
    return {since(panelFrame_), since(mainFrame_)};
  }

  void pumpFor(Steady::duration duration) {
    for (const auto end = Steady::now() + duration; Steady::now() < end;) pump();
  }

  void printSize(const char* when) {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    std::printf("  %-10s %6.1f MB resident, %d items, %lld objects\n", when,
                bench::memory(::getpid(), "VmRSS"),
                itemsBelow(*panel_->contentItem()) + itemsBelow(*main_.contentItem()),
                static_cast<long long>(main_.findChildren<QObject*>().size() +
                                       panel_->findChildren<QObject*>().size()));
  }

 private:
  static void watch(QQuickWindow& window, Steady::time_point& frame) {
    QObject::connect(
        &window, &QQuickWindow::frameSwapped, &window, [&frame] { frame = Steady::now(); },
        Qt::DirectConnection);
  }
  static void pump() {
    QCoreApplication::processEvents();
    ::usleep(200);
  }

  test::InMemoryModel model_;
  adapters::IcuLocale locale_{"en_US"};
  LanguageNames names_{locale_};
  QQmlEngine engine_;
  MainWindow main_{engine_, model_.app(), names_};
  QuickCaptionWindowController controller_{engine_};
  QuickCaptionPanel* panel_ = nullptr;
  Steady::time_point panelFrame_;
  Steady::time_point mainFrame_;
};

void print(const char* what, const std::vector<double>& values) {
  std::printf("  %-12s median %5.1f ms, p95 %5.1f ms, p99 %5.1f ms, longest %5.1f ms\n", what,
              quantile(values, 0.5), quantile(values, 0.95), quantile(values, 0.99), quantile(values, 1));
}

// Captions as the service sends them: the sentence so far, its last words still open.
void say(test::InMemoryModel& model, int number, int words) {
  if (words == wordsPerSentence) {
    model.finish(sentence(number, words));
  } else if (words % 2 == 0) {
    model.source(sentence(number + 1, words));
  } else {
    model.translation(sentence(number, std::max(1, words - 2)), " " + sentence(number + words, 2));
  }
}

void measureLatency(Windows& windows, int seconds) {
  std::vector<double> panel;
  std::vector<double> main;
  auto next = Steady::now();
  for (int i = 0; i < seconds * 20; ++i) {
    const auto [panelTime, mainTime] =
        windows.show([&] { say(windows.model(), i / wordsPerSentence, 1 + i % wordsPerSentence); });
    panel.push_back(panelTime);
    main.push_back(mainTime);
    next += interval;
    windows.pumpFor(next - Steady::now());
  }
  std::printf("caption event to the frame that shows it, 20 a second for %d s:\n", seconds);
  print("panel", panel);
  print("main window", main);
}

void measureAnHour(Windows& windows, int minutes) {
  std::printf("%d minutes of captions, %d sentences of %d captions a minute, each drawn:\n", minutes,
              sentencesPerMinute, wordsPerSentence);
  const auto began = Steady::now();
  windows.printSize("before");
  for (int minute = 1; minute <= minutes; ++minute) {
    for (int number = minute * sentencesPerMinute; number < (minute + 1) * sentencesPerMinute; ++number) {
      for (int words = 1; words <= wordsPerSentence; ++words) {
        windows.show([&] { say(windows.model(), number, words); });
      }
    }
    if (minute % 10 == 0) windows.printSize(("minute " + std::to_string(minute)).c_str());
  }
  const std::chrono::duration<double> took = Steady::now() - began;
  std::printf("  in %.0f s\n", took.count());
}

} // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
  if (!TolveraApp::prepareProcess()) {
    std::fputs("there is no display; see tools/stage/private-desktop\n", stderr);
    return 1;
  }
  const QApplication application(argc, argv);
  TolveraApp::prepareApplication();
  std::printf("windows by %s\n", qPrintable(QGuiApplication::platformName()));
  Windows windows;
  measureLatency(windows, argc > 1 ? std::stoi(argv[1]) : 15);
  measureAnHour(windows, argc > 2 ? std::stoi(argv[2]) : 60);
  return 0;
}
