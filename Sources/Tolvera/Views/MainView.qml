import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// The content of the application's one ordinary window: a toolbar with two tabs, and the tab below it.
Rectangle {
    id: view

    required property AppState app
    required property LanguageNames languageNames

    // What the window must not be made smaller than.
    readonly property int minimumWidth: 520
    readonly property int minimumHeight: 520 + toolbar.height

    readonly property strings strings: app.settings.strings

    color: Theme.window
    Component.onCompleted: app.beginBootstrap()
    Window.onActiveChanged: {
        if (Window.active)
            app.retryBootstrap();
    }

    Shortcut {
        sequence: "Ctrl+,"
        onActivated: {
            view.app.tab = MainViewRules.settingsTab();
            view.Window.window.requestActivate();
        }
    }
    Shortcut {
        sequence: "Ctrl+W"
        onActivated: view.Window.window.close()
    }
    Shortcut {
        sequence: "Ctrl+Q"
        onActivated: Qt.quit()
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Rectangle {
            id: toolbar

            Layout.fillWidth: true
            implicitHeight: tabs.implicitHeight + 20
            color: Theme.bar

            SegmentedControl {
                id: tabs

                anchors.centerIn: parent
                width: 160
                label: view.strings.pick("视图", "View")
                value: view.app.tab
                segments: [
                    {
                        text: view.strings.pick("翻译", "Translate"),
                        value: MainViewRules.translateTab()
                    },
                    {
                        text: view.strings.settings,
                        value: MainViewRules.settingsTab()
                    }
                ]
                onChosen: value => view.app.tab = value
            }
            Rectangle {
                anchors.bottom: parent.bottom
                width: parent.width
                height: 1
                color: Theme.separator
            }
        }

        Loader {
            Layout.fillWidth: true
            Layout.fillHeight: true
            sourceComponent: view.app.tab === MainViewRules.settingsTab() ? settingsPane : translateTab
        }
    }

    Component {
        id: translateTab

        TranslateTab {
            app: view.app
            languageNames: view.languageNames
        }
    }
    Component {
        id: settingsPane

        SettingsPane {
            app: view.app
        }
    }
}
