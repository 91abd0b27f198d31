#pragma once

class QQmlEngine;

// The views of the program: the QML module "Tolvera.Views". Link TolveraViews and TolveraViewsplugin.
namespace tolvera::Views {

// Where each view is found.
inline constexpr const char* mainView = "qrc:/qt/qml/Tolvera/Views/MainView.qml";
inline constexpr const char* captionPanel = "qrc:/qt/qml/Tolvera/Views/CaptionPanel.qml";
inline constexpr const char* captionView = "qrc:/qt/qml/Tolvera/Views/CaptionView.qml";
inline constexpr const char* onboardingView = "qrc:/qt/qml/Tolvera/Views/OnboardingView.qml";

// Fonts and text drawing for every window. Once, after the application object is made and before any
// window is.
void prepareApplication();
// Makes the module known to an engine, before it loads a view.
void prepareEngine(QQmlEngine& engine);

} // namespace tolvera::Views
