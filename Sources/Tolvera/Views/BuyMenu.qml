import QtQml.Models
import QtQuick
import Tolvera.Views

// The packs of time on offer, and the sign-in for who has not signed in.
PopUpMenu {
    id: buyMenu

    required property AppState app
    readonly property strings strings: app.settings.strings

    Instantiator {
        model: buyMenu.app.packs
        delegate: MenuEntry {
            required property var modelData

            text: MainViewRules.packLabel(buyMenu.strings, modelData)
            onTriggered: buyMenu.app.beginTopUp(modelData.id)
        }
        onObjectAdded: (index, object) => buyMenu.insertItem(index, object)
        onObjectRemoved: (index, object) => buyMenu.removeItem(object)
    }

    MenuDivider {
        visible: !buyMenu.app.signedIn
        height: visible ? implicitHeight : 0
    }
    MenuEntry {
        visible: !buyMenu.app.signedIn
        height: visible ? implicitHeight : 0
        text: buyMenu.strings.signIn
        onTriggered: buyMenu.app.beginSignIn()
    }
}
