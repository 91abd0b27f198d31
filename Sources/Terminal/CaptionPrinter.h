#pragma once

#include "Tolvera/Model/AppState.h"

#include <QObject>

#include <cstdio>

namespace tolvera {

// Prints the model to a stream, one line for each change: its phase, its status line, the source text and
// the translation, whose unsettled tail stands in brackets. Main thread; the model outlives it.
class CaptionPrinter : public QObject {
 public:
  CaptionPrinter(AppState& model, Executor main, std::FILE* output);

  // The number of finished translations printed so far.
  [[nodiscard]] int finishedTranslations() const { return finishedTranslations_; }

 private:
  void print(const char* label, const QString& text);
  void scheduleTranslation();
  void printTranslation();

  AppState& model_;
  Executor main_;
  std::FILE* output_;
  bool scheduled_ = false;
  int finishedTranslations_ = 0;
};

} // namespace tolvera
