import QtQuick
import Tolvera.Views

// Shows which control the keyboard works on.
Rectangle {
    property Item control: parent
    property bool shown: false
    property real cornerRadius: 6

    anchors.fill: control
    anchors.margins: -3
    radius: cornerRadius + 3
    color: "transparent"
    border.width: 2
    border.color: Theme.accentSymbol
    visible: shown
    z: 1
}
