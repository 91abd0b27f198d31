#pragma once

#include "Tolvera/Model/AppState.h"

#include <QObject>

#include <cstdio>

namespace tolvera {

// Prints each change of the model as one line: the phase, the status, the source text and the translation,
// whose unsettled tail stands in brackets. Main thread; the model outlives it.
class CaptionPrinter : public QObject {
 public:
  CaptionPrinter(AppState& model, Executor main, std::FILE* output);

 private:
  void print(const char* label, const QString& text);
  void scheduleTranslation();
  void printTranslation();

  AppState& model_;
  Executor main_;
  std::FILE* output_;
  bool scheduled_ = false;
};

} // namespace tolvera
