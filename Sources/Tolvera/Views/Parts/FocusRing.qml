import QtQuick
import Tolvera.Views

// Shows which control the keyboard works on.
Box {
    property Item control: parent
    property bool shown: false
    property real cornerRadius: 6

    anchors.fill: control
    anchors.margins: -3
    radius: cornerRadius + 3
    color: "transparent"
    borderWidth: 2
    borderColor: Theme.accentSymbol
    visible: shown
    z: 1
}
