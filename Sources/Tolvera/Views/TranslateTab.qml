import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// The tab where a run is chosen and started; during one, and while a caption stands, its captions.
Item {
    id: tab

    required property AppState app
    required property LanguageNames languageNames

    Loader {
        anchors.fill: parent
        sourceComponent: MainViewRules.showsCaptions(tab.app.phase, tab.app.currentLine) ? live : form
    }

    Component {
        id: live

        LiveView {
            app: tab.app
            languageNames: tab.languageNames
        }
    }
    Component {
        id: form

        ColumnLayout {
            spacing: 0

            TranslateControls {
                Layout.fillWidth: true
                Layout.fillHeight: true
                app: tab.app
                languageNames: tab.languageNames
            }
            TranslateBar {
                Layout.fillWidth: true
                app: tab.app
            }
        }
    }
}
