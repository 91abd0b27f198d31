import QtQml.Models
import QtQuick
import Tolvera.Views

// The packs of time on offer, and the sign-in for a user who has not signed in.
PopUpMenu {
    id: buyMenu

    required property AppState app
    readonly property strings strings: app.settings.strings

    readonly property var entries: {
        const entries = app.packs.map(pack => ({
                    text: MainViewRules.packLabel(strings, pack),
                    pack: pack.id
                }));
        if (!app.signedIn)
            entries.push({
                text: strings.signIn,
                pack: ""
            });
        if (entries.length === 0)
            entries.push({
                text: strings.pick("暂无可购买的时长", "Nothing to buy"),
                pack: null
            });
        return entries;
    }

    Instantiator {
        model: buyMenu.entries
        delegate: MenuEntry {
            required property var modelData
            required property int index

            text: modelData.text
            enabled: modelData.pack !== null
            divided: modelData.pack === "" && index > 0
            onTriggered: modelData.pack === "" ? buyMenu.app.beginSignIn() : buyMenu.app.beginTopUp(modelData.pack)
        }
        onObjectAdded: (index, object) => buyMenu.insertItem(index, object)
        onObjectRemoved: (index, object) => buyMenu.removeItem(object)
    }
}
