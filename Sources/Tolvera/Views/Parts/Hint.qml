import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// The tooltip of the control that it stands in.
T.ToolTip {
    id: control

    property bool shown: false

    visible: shown && text !== ""
    delay: 600
    x: parent ? (parent.width - width) / 2 : 0
    y: parent ? parent.height + 6 : 0
    margins: 6
    padding: 5
    leftPadding: 9
    rightPadding: 9
    implicitWidth: Math.min(contentItem.implicitWidth + leftPadding + rightPadding, (parent ? parent.Window.width : 0) - 2 * margins)
    implicitHeight: contentItem.implicitHeight + topPadding + bottomPadding
    closePolicy: T.Popup.CloseOnEscape | T.Popup.CloseOnPressOutside | T.Popup.CloseOnReleaseOutside

    contentItem: Text {
        text: control.text
        font.pixelSize: Theme.caption
        color: Theme.primary
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
    }
    background: Rectangle {
        radius: 5
        color: Theme.popup
        border.width: 1
        border.color: Theme.outline
    }
}
