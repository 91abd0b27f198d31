#include "ViewTests/ViewHost.h"

#include "Tolvera/Views/Parts/SelectableText.h"
#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QQmlEngine>
#include <QTest>

#include <stdexcept>

namespace tolvera::test {

namespace {

QStringList& warnings() {
  static QStringList collected;
  return collected;
}

void collect(QtMsgType type, const QMessageLogContext&, const QString& message) {
  if (type == QtDebugMsg || type == QtInfoMsg) return;
  warnings().append(message);
  if (type == QtFatalMsg) std::fprintf(stderr, "%s\n", qUtf8Printable(message));
}

const char* address(ViewHost::Kind kind) {
  switch (kind) {
  case ViewHost::Kind::main:
    return Views::mainView;
  case ViewHost::Kind::caption:
    return Views::captionView;
  case ViewHost::Kind::onboarding:
    break;
  }
  return Views::onboardingView;
}

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

} // namespace

ViewHost::ViewHost(InMemoryModel& model, const platform::Locale& locale, Kind kind, QSize size)
    : model_(model), names_(locale), view_(std::make_unique<QQuickView>()) {
  Views::prepareEngine(*view_->engine());
  QVariantMap properties{{"app", QVariant::fromValue(&model.app())}};
  if (kind == Kind::main) properties.insert("languageNames", QVariant::fromValue(&names_));
  view_->setInitialProperties(properties);
  view_->setPosition(64, 64); // away from the pointer
  const bool sizesItself = kind == Kind::onboarding;
  view_->setResizeMode(sizesItself ? QQuickView::SizeViewToRootObject : QQuickView::SizeRootObjectToView);
  if (!sizesItself) view_->resize(size);
  view_->setSource(QUrl(address(kind)));
  if (view_->status() != QQuickView::Ready) throw std::runtime_error("the view does not load");
  view_->show();
  view_->requestActivate();
  settle();
}

ViewHost::~ViewHost() {
  // The view goes before the model that it is bound to.
  view_.reset();
}

void ViewHost::settle() {
  for (int turn = 0; turn < 4; ++turn) {
    model_.settle();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
}

QImage ViewHost::grab() {
  settle();
  auto image = view_->grabWindow();
  return image;
}

void ViewHost::forEachInterface(const std::function<void(QAccessibleInterface&)>& visit) {
  walk(QAccessible::queryAccessibleInterface(view_.get()), visit);
}

void ViewHost::forEachItem(const std::function<void(QQuickItem&)>& visit) {
  walk(*view_->contentItem(), visit);
}

QAccessibleInterface* ViewHost::interface(QAccessible::Role role, const QString& name) {
  QAccessibleInterface* found = nullptr;
  forEachInterface([&](QAccessibleInterface& element) {
    if (!found && element.role() == role && element.text(QAccessible::Name) == name) found = &element;
  });
  return found;
}

QQuickItem* ViewHost::find(QAccessible::Role role, const QString& name) {
  auto* const element = interface(role, name);
  return element ? qobject_cast<QQuickItem*>(element->object()) : nullptr;
}

QString ViewHost::valueOf(QAccessible::Role role, const QString& name) {
  auto* const element = interface(role, name);
  if (!element) return QStringLiteral("(absent)");
  if (role == QAccessible::ComboBox) return element->text(QAccessible::Description);
  return element->state().checked ? QStringLiteral("on") : QStringLiteral("off");
}

bool ViewHost::isEnabled(QAccessible::Role role, const QString& name) {
  auto* const item = find(role, name);
  return item && item->isEnabled();
}

QStringList ViewHost::names(QAccessible::Role role) {
  QStringList names;
  forEachInterface([&](QAccessibleInterface& element) {
    if (element.role() == role) names.append(element.text(QAccessible::Name));
  });
  return names;
}

void ViewHost::click(QAccessible::Role role, const QString& name) {
  grab(); // puts everything in its place
  auto* const item = find(role, name);
  if (!item) throw std::runtime_error("nothing to click is named " + name.toStdString());
  click(*item);
}

void ViewHost::click(QQuickItem& item) {
  const auto middle = item.mapToScene(QPointF(item.width() / 2, item.height() / 2)).toPoint();
  QTest::mouseClick(view_.get(), Qt::LeftButton, {}, middle);
  settle();
}

void ViewHost::press(Qt::Key key, Qt::KeyboardModifiers modifiers) {
  QTest::keyClick(view_.get(), key, modifiers);
  settle();
}

void ViewHost::type(const QString& text) {
  for (const auto letter : text) QTest::keyClick(view_.get(), letter.toLatin1());
  settle();
}

QString ViewHost::focused() {
  auto* const item = view_->activeFocusItem();
  auto* const element = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
  return element ? element->text(QAccessible::Name) : QString();
}

QStringList ViewHost::faults() {
  grab(); // puts everything in its place
  QStringList faults;
  const QRectF bounds(QPointF(0, 0), QSizeF(view_->size()));
  forEachItem([&](QQuickItem& item) {
    const auto text = item.property("text").toString();
    const auto scene = item.mapRectToScene(QRectF(0, 0, item.width(), item.height()));
    if (text.isEmpty() || item.width() <= 0) return;
    if (item.inherits("QQuickText")) {
      if (item.property("truncated").toBool()) faults.append(text + ": cut off");
      if (item.property("contentWidth").toDouble() > item.width() + 1) faults.append(text + ": too wide");
    }
    if (scene.left() < -1 || scene.right() > bounds.right() + 1) faults.append(text + ": beyond the window");
  });
  forEachInterface([&](QAccessibleInterface& element) {
    const auto state = element.state();
    const bool isControl = state.focusable || state.checkable || element.role() == QAccessible::Button;
    if (!isControl || element.role() == QAccessible::StaticText) return;
    const QString kind = element.object()->metaObject()->className();
    if (element.text(QAccessible::Name).isEmpty()) faults.append(kind + ": has no name");
    if (element.role() == QAccessible::Client) faults.append(kind + ": has no role");
  });
  return faults;
}

void ViewHost::collectWarnings() { qInstallMessageHandler(collect); }

QStringList ViewHost::takeWarnings() { return std::exchange(warnings(), {}); }

} // namespace tolvera::test
