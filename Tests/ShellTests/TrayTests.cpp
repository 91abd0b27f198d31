#include "Fakes/InMemoryModel.h"
#include "Harness/ChildProcess.h"
#include "ShellTests/DesktopFixture.h"
#include "Tolvera/App/MenuBarExtra.h"
#include "Tolvera/Views/Desktop.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QMap>

#include <gtest/gtest.h>

namespace tolvera::test {

namespace {

// As a tray sees the program: from another connection to the bus.
class TrayTests : public testing::Test {
 protected:
  TrayTests() { model_.account(3600); }

  static ChildProcess startTray() { return ChildProcess({"/proc/self/exe", "--notifier-watcher"}); }

  QVariantList ask(const QString& service, const QString& path, const QString& interface,
                   const QString& member, const QVariantList& arguments) {
    auto request = QDBusMessage::createMethodCall(service, path, interface, member);
    request.setArguments(arguments);
    request.setAutoStartService(false);
    auto call = bus_.asyncCall(request);
    eventually([&call] { return call.isFinished(); });
    return call.reply().type() == QDBusMessage::ReplyMessage ? call.reply().arguments() : QVariantList();
  }
  QVariant property(const QString& service, const QString& path, const QString& interface,
                    const QString& name) {
    const auto reply = ask(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                           QStringLiteral("Get"), {interface, name});
    return reply.value(0).value<QDBusVariant>().variant();
  }
  // The program's icons with the tray; one at most.
  QStringList items() {
    return property(QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
                    QStringLiteral("org.kde.StatusNotifierWatcher"),
                    QStringLiteral("RegisteredStatusNotifierItems"))
        .toStringList();
  }

  // The labels of the menu as the tray gets them, with their identifiers there.
  QMap<QString, int> labels() {
    const auto reply = ask(items().value(0), QStringLiteral("/MenuBar"), menuInterface,
                           QStringLiteral("GetLayout"), {0, -1, QStringList()});
    QMap<QString, int> labels;
    if (reply.size() < 2) return labels;
    read(reply[1].value<QDBusArgument>(), labels);
    return labels;
  }
  static void read(const QDBusArgument& item, QMap<QString, int>& labels) {
    int id = 0;
    QVariantMap properties;
    item.beginStructure();
    item >> id >> properties;
    labels.insert(properties.value(QStringLiteral("label")).toString(), id);
    item.beginArray();
    while (!item.atEnd()) {
      QDBusVariant child;
      item >> child;
      read(child.variant().value<QDBusArgument>(), labels);
    }
    item.endArray();
    item.endStructure();
  }
  void click(const QString& label) {
    ask(items().value(0), QStringLiteral("/MenuBar"), menuInterface, QStringLiteral("Event"),
        {labels().value(label, -1), QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0U});
    model_.settle();
  }

  const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");
  QDBusConnection bus_ = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("tray"));
  InMemoryModel model_;
  Desktop desktop_;
  int opened_ = 0;
  MenuBarExtra extra_{model_.app(), desktop_, [this] { ++opened_; }};
};

TEST_F(TrayTests, comesWithTheTrayAndGoesWithTheSetting) {
  settleDesktop();
  EXPECT_FALSE(extra_.isInserted());
  {
    const auto tray = startTray();
    promise("an icon appears in a tray that starts after the program",
            eventually([this] { return items().size() == 1; }));
    model_.settings().setMenuBarEnabled(false);
    promise("the setting takes it away", eventually([this] { return items().isEmpty(); }));
    model_.settings().setMenuBarEnabled(true);
    promise("the setting brings it back", eventually([this] { return items().size() == 1; }));
  }
  EXPECT_TRUE(eventually([this] { return !extra_.isInserted(); }));
  const auto tray = startTray();
  promise("it comes back with a tray that was gone", eventually([this] { return items().size() == 1; }));
}

TEST_F(TrayTests, offersItsMenuToTheTrayAndKeepsItCurrent) {
  const auto tray = startTray();
  ASSERT_TRUE(eventually([this] { return items().size() == 1; }));
  EXPECT_TRUE(labels().contains("Tolvera · Time left 1h 0m")) << qPrintable(labels().keys().join("|"));
  click("Settings");
  promise("the tray's menu opens the settings",
          opened_ == 1 && model_.app().tab() == AppState::Tab::settings);
  click("Start translating");
  promise("the tray's menu starts a run", model_.app().phase().isActive());
  promise("the tray's menu is current", eventually([this] { return labels().contains("Stop"); }));
  model_.settings().setUILanguage(UILanguage::chinese);
  EXPECT_TRUE(eventually([this] { return labels().contains("停止"); }));
}

// In a process of its own: an application is bound to the first kind of tray that it meets.
class EmbeddingTrayTests : public TrayTests {};

TEST_F(EmbeddingTrayTests, embedsItsIconWhereOnlyTheOlderTrayIs) {
  const ChildProcess tray({"trayer", "--edge", "top", "--align", "left", "--width", "100", "--height", "32",
                           "--tint", "0xffffff", "--alpha", "0", "--transparent", "false"});
  promise("an icon appears in a tray of the older kind", eventually([this] { return extra_.isInserted(); }));
  settleDesktop();
  press({12, 16});
  release();
  promise("a click on it opens the menu", eventually([this] { return extra_.isMenuOpen(); }));
}

} // namespace
} // namespace tolvera::test
