#include "Tolvera/Views/Views.h"
#include "ViewTests/Stage.h"

#include <QQmlComponent>
#include <QQmlEngine>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace tolvera {
namespace {

class Story : public testing::TestWithParam<QJsonValue> {};

TEST_P(Story, EndsAsTold) {
  EXPECT_NO_THROW(test::Stage(GetParam().toObject(), false)) << GetParam()["name"].toString().toStdString();
}
INSTANTIATE_TEST_SUITE_P(All, Story, testing::ValuesIn(test::allScenes()["stories"].toArray()),
                         [](const auto& story) { return story.param["name"].toString().toStdString(); });

TEST(BuyMenu, BuildsSeenRowsAlone) {
  const adapters::IcuLocale locale{"en_US"};
  test::InMemoryModel model;
  test::ViewHost host(model, locale, Views::mainView, {660, 620});
  for (const int packs : {100000, 0}) {
    std::string list;
    for (int i = 0; i < packs; ++i)
      list += (i ? "," : "") + std::string(R"({"id":"p)") + std::to_string(i) +
              R"(","hours":1,"cents":1,"fen":1})";
    auto reply = test::accountReply(60, true);
    reply.replace(reply.find("\"packs\":[") + 9, reply.size(), list + "]}");
    model.in().network.reply("/api/me", 200, reply);
    model.in().loop.run(model.app().refreshAccount());
    host.click("Buy more");
    int rows = 0;
    int listed = 0;
    host.forEachItem([&](QQuickItem& item) {
      rows += item.inherits("QQuickMenuItem") ? 1 : 0;
      if (item.inherits("QQuickListView")) listed = item.property("count").toInt();
    });
    EXPECT_EQ(listed, std::max(packs, 1));
    EXPECT_LE(rows, 50);
    EXPECT_EQ(host.valueOf("Nothing to buy"), packs ? "(absent)" : " (disabled)");
    host.press(Qt::Key_Escape);
  }
}

// As the web's accessibility guidelines define it, from 1 to 21.
double contrast(const QColor& one, const QColor& other) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  const auto luminance = [&linear](const QColor& color) {
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
  };
  const auto [darker, lighter] = std::minmax(luminance(one), luminance(other));
  return (lighter + 0.05) / (darker + 0.05);
}

TEST(Theme, TextContrastsInBothSchemes) {
  QQmlEngine engine;
  Views::prepareEngine(engine);
  QQmlComponent component(&engine);
  component.setData("import QtQml\nimport Tolvera.Views\nQtObject { property QtObject theme: Theme }", {});
  const std::unique_ptr<QObject> holder(component.create());
  const auto* const theme = holder->property("theme").value<QObject*>();
  for (const bool dark : {true, false}) {
    test::Offscreen::setDark(dark);
    QCoreApplication::processEvents();
    ASSERT_EQ(theme->property("dark").toBool(), dark) << "the scheme is followed live";
    const auto color = [theme](const char* name) { return theme->property(name).value<QColor>(); };
    for (const char* text : {"primary", "secondary", "tertiary", "failure"}) {
      for (const char* ground : {"window", "card", "bar", "popup"}) {
        EXPECT_GE(contrast(color(text), color(ground)), 4.5) << text << " on " << ground << ", dark " << dark;
      }
    }
    EXPECT_GE(contrast(Qt::white, color("accent")), 4.5);
    EXPECT_GE(contrast(color("primary"), color("knob")), 4.5);
  }
}

} // namespace
} // namespace tolvera

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const tolvera::test::Offscreen offscreen(argc, argv);
  return RUN_ALL_TESTS();
}
