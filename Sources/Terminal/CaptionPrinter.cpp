#include "Terminal/CaptionPrinter.h"

#include "Async/Printable.h"

#include <QPointer>
#include <boost/asio/post.hpp>

#include <utility>

namespace tolvera {

CaptionPrinter::CaptionPrinter(AppState& model, Executor main, std::FILE* output)
    : model_(model), main_(std::move(main)), output_(output) {
  connect(&model, &AppState::phaseChanged, this, [this] { print("phase", model_.phase().description()); });
  connect(&model, &AppState::overlayStatusChanged, this, [this] { print("status", model_.overlayStatus()); });
  connect(&model, &AppState::sourceLineChanged, this, [this] { print("source", model_.sourceLine()); });
  connect(&model, &AppState::currentLineChanged, this, [this] { scheduleTranslation(); });
  connect(&model, &AppState::currentStashChanged, this, [this] { scheduleTranslation(); });
  connect(&model, &AppState::previousLineChanged, this, [this] { print("finished", model_.previousLine()); });
}

// One caption changes both fields and is printed once.
void CaptionPrinter::scheduleTranslation() {
  if (std::exchange(scheduled_, true)) return;
  boost::asio::post(main_, [self = QPointer(this)] {
    if (self) self->printTranslation();
  });
}

void CaptionPrinter::printTranslation() {
  scheduled_ = false;
  const auto& tail = model_.currentStash();
  print("translation", tail.isEmpty() ? model_.currentLine() : model_.currentLine() + "[" + tail + "]");
}

void CaptionPrinter::print(const char* label, const QString& text) {
  // A line that was emptied has nothing to print.
  if (text.isEmpty()) return;
  const auto line = printable(QString(text).replace('\n', ' ').toStdString());
  std::fprintf(output_, "%s: %s\n", label, line.c_str());
  std::fflush(output_);
}

} // namespace tolvera
