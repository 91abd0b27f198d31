#pragma once

#include "Platform/Linux/Desktop/IcuLocale.h"
#include "ViewTests/ViewHost.h"

#include <QJsonArray>
#include <QJsonObject>

namespace tolvera::test {

// Everything in scenes.json: "steps" are named series of steps, "scenes" are for pictures, and "stories" say
// what a person does and must find.
const QJsonObject& allScenes();

// Plays one scene or story. A step is a verb and its words, or the name of a series; a pair is Chinese, then
// English. A step that finds something else than it says throws with what it found.
struct Stage {
  Stage(const QJsonObject& scene, bool isChinese);
  void play(const QJsonArray& steps);
  [[nodiscard]] QString text(const QJsonValue& value) const;

  const bool chinese;
  const adapters::IcuLocale locale;
  InMemoryModel model;
  std::unique_ptr<ViewHost> host;
};

} // namespace tolvera::test
