#include "ViewTests/ViewHost.h"

#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QFont>
#include <QPalette>
#include <QQmlEngine>
#include <QTest>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace tolvera::test {

namespace {

void walk(QAccessibleInterface* from, const std::function<void(QAccessibleInterface&)>& visit) {
  if (!from || from->state().invisible) return;
  visit(*from);
  for (int i = 0; i < from->childCount(); ++i) walk(from->child(i), visit);
}

void walk(QQuickItem& from, const std::function<void(QQuickItem&)>& visit) {
  if (!from.isVisible()) return;
  visit(from);
  for (auto* child : from.childItems()) walk(*child, visit);
}

void failOnWarning(QtMsgType type, const QMessageLogContext&, const QString& message) {
  std::fprintf(stderr, "%s\n", qUtf8Printable(message));
  if (type == QtWarningMsg || type == QtCriticalMsg) std::abort();
}

} // namespace

void Offscreen::prepareEnvironment() {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/dev/null");
  qputenv("TOLVERA_REDUCED_MOTION", "1");
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  QQuickWindow::setDefaultAlphaBuffer(true);
}

Offscreen::Offscreen(int& argc, char** argv) : application_((prepareEnvironment(), argc), argv) {
  qInstallMessageHandler(failOnWarning);
  Views::prepareApplication();
  QAccessible::setActive(true);
  setTextSize(14);
  setDark(false);
}

void Offscreen::setDark(bool dark) {
  QPalette palette;
  palette.setColor(QPalette::Window, dark ? Qt::black : Qt::white);
  palette.setColor(QPalette::WindowText, dark ? Qt::white : Qt::black);
  QGuiApplication::setPalette(palette);
}

void Offscreen::setTextSize(int pixels) {
  auto font = QGuiApplication::font();
  font.setPixelSize(pixels);
  QGuiApplication::setFont(font);
}

ViewHost::ViewHost(InMemoryModel& model, const platform::Locale& locale, const char* address, QSize size)
    : model_(model), names_(locale), view_(std::make_unique<QQuickView>()) {
  Views::prepareEngine(*view_->engine());
  QVariantMap properties{{"app", QVariant::fromValue(&model.app())}};
  if (std::string_view(address) == Views::mainView)
    properties.insert("languageNames", QVariant::fromValue(&names_));
  view_->setInitialProperties(properties);
  view_->setPosition(64, 64); // away from the pointer
  view_->setResizeMode(size.isValid() ? QQuickView::SizeRootObjectToView : QQuickView::SizeViewToRootObject);
  if (size.isValid()) view_->resize(size);
  view_->setSource(QUrl(address)); // an error is a warning, which ends the program
  view_->show();
  view_->requestActivate();
  grab();
}

QImage ViewHost::grab() {
  for (int turn = 0; turn < 4; ++turn) {
    model_.settle();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
  return view_->grabWindow();
}

void ViewHost::forEachElement(const std::function<void(QAccessibleInterface&)>& visit) {
  walk(QAccessible::queryAccessibleInterface(view_.get()), visit);
}

void ViewHost::forEachItem(const std::function<void(QQuickItem&)>& visit) {
  walk(*view_->contentItem(), visit);
}

QAccessibleInterface* ViewHost::control(const QString& name) {
  QAccessibleInterface* found = nullptr;
  forEachElement([&](auto& element) {
    const auto role = element.role();
    if (found || element.text(QAccessible::Name) != name || role == QAccessible::StaticText) return;
    if (role != QAccessible::Heading && role != QAccessible::Grouping) found = &element;
  });
  return found;
}

QString ViewHost::valueOf(const QString& name) {
  auto* const element = control(name);
  if (!element) return "(absent)";
  auto value = element->text(QAccessible::Description);
  if (element->state().checkable) value = element->state().checked ? "on" : "off";
  return element->object()->property("enabled").toBool() ? value : value + " (disabled)";
}

bool ViewHost::isAbove(const QString& upper, const QString& lower) {
  return control(upper) && control(lower) && control(upper)->rect().bottom() < control(lower)->rect().top();
}

QStringList ViewHost::texts() {
  QStringList texts;
  forEachElement([&](auto& e) { texts << e.text(QAccessible::Name) << e.text(QAccessible::Description); });
  texts.removeAll("");
  return texts;
}

void ViewHost::click(const QString& name) {
  auto* const element = control(name);
  if (!element) throw std::runtime_error("there is no such control");
  const auto& item = *qobject_cast<QQuickItem*>(element->object());
  const auto middle = item.mapToScene(QPointF(item.width() / 2, item.height() / 2)).toPoint();
  QTest::mouseClick(view_.get(), Qt::LeftButton, {}, middle);
  grab();
}

void ViewHost::dragScrollBar(int pixels) {
  QPointF handle;
  forEachItem([&](QQuickItem& item) {
    if (!item.inherits("QQuickScrollBar")) return;
    auto* const grip = item.property("contentItem").value<QQuickItem*>();
    handle = grip->mapToScene(QPointF(grip->width() / 2, grip->height() / 2));
  });
  QTest::mousePress(view_.get(), Qt::LeftButton, {}, handle.toPoint());
  QTest::mouseMove(view_.get(), handle.toPoint() + QPoint(0, pixels));
  QTest::mouseRelease(view_.get(), Qt::LeftButton, {}, handle.toPoint() + QPoint(0, pixels));
  grab();
}

void ViewHost::press(Qt::Key key, const QString& letter) {
  // Keys like Escape come with a control character as their text.
  QTest::sendKeyEvent(QTest::Click, view_.get(), key,
                      letter.isEmpty() ? QString(QTest::keyToAscii(key)) : letter, {});
  grab();
}

QString ViewHost::focused() {
  auto* const element = QAccessible::queryAccessibleInterface(view_->activeFocusItem());
  return element ? element->text(QAccessible::Name) : QString();
}

QStringList ViewHost::faults() {
  grab();
  QStringList faults;
  forEachItem([&](QQuickItem& item) {
    const auto text = item.property("text").toString();
    if (text.isEmpty() || item.width() <= 0) return;
    const bool tooWide = item.property("contentWidth").toDouble() > item.width() + 1;
    if (item.property("truncated").toBool() || (tooWide && item.inherits("QQuickText")))
      faults << text + ": cut";
    const auto scene = item.mapRectToScene(QRectF({}, item.size()));
    if (scene.left() < -1 || scene.right() > view_->width() + 1) faults.append(text + ": beyond the window");
  });
  forEachElement([&](auto& element) {
    const auto state = element.state();
    const bool isControl = state.focusable || state.checkable || element.role() == QAccessible::Button;
    if (!isControl || element.role() == QAccessible::StaticText) return;
    if (element.text(QAccessible::Name).isEmpty() || element.role() == QAccessible::Client)
      faults << QString(element.object()->metaObject()->className()) + ": has no name or role";
  });
  return faults;
}

} // namespace tolvera::test
