import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

T.MenuItem {
    id: control

    property bool divided: false // by a line from the entries above

    implicitWidth: caption.implicitWidth + leftPadding + rightPadding
    implicitHeight: Math.max(Math.round(Theme.body * 2), caption.implicitHeight + 8) + topInset
    topInset: divided ? 11 : 0
    topPadding: topInset
    leftPadding: 12
    rightPadding: 12
    hoverEnabled: true
    Accessible.name: text
    Keys.onReturnPressed: control.triggered()
    Keys.onEnterPressed: control.triggered()

    contentItem: Text {
        id: caption

        text: control.text
        font.pixelSize: Theme.body
        color: !control.enabled ? Theme.secondary : (control.highlighted ? "#ffffff" : Theme.primary)
        textFormat: Text.PlainText
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }
    background: Box {
        radius: 5
        color: control.highlighted && control.enabled ? Theme.accent : "transparent"

        Rectangle {
            x: 8
            y: -6
            width: parent.width - 16
            height: 1
            visible: control.divided
            color: Theme.separator
        }
    }
}
