import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// A menu of MenuEntry.
T.Menu {
    id: control

    implicitWidth: Math.max(Theme.body * 11, contentWidth + leftPadding + rightPadding)
    implicitHeight: contentItem.implicitHeight + topPadding + bottomPadding
    margins: 6
    padding: 5
    overlap: 1

    contentItem: ListView {
        implicitHeight: contentHeight
        model: control.contentModel
        interactive: contentHeight > height
        clip: true
        currentIndex: control.currentIndex
        keyNavigationEnabled: true
    }

    background: Rectangle {
        radius: 9
        color: Theme.popup
        border.width: 1
        border.color: Theme.outline
    }
}
