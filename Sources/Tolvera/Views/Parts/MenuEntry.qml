import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

T.MenuItem {
    id: control

    implicitWidth: caption.implicitWidth + leftPadding + rightPadding
    implicitHeight: Math.max(Math.round(Theme.body * 2), caption.implicitHeight + 8)
    leftPadding: 12
    rightPadding: 12
    hoverEnabled: true
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    contentItem: Text {
        id: caption

        text: control.text
        font.pixelSize: Theme.body
        color: control.highlighted ? "#ffffff" : Theme.primary
        textFormat: Text.PlainText
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }
    background: Rectangle {
        radius: 5
        color: control.highlighted ? Theme.accent : "transparent"
    }
}
