import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// A thin scroll bar, there while there is something to scroll.
T.ScrollBar {
    id: control

    implicitWidth: 10
    padding: 2
    visible: size < 1
    minimumSize: 0.08

    contentItem: Rectangle {
        implicitWidth: 6
        radius: 3
        color: Theme.secondary
        opacity: control.pressed ? 0.9 : (control.hovered ? 0.7 : 0.45)
    }
}
