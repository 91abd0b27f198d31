import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

T.MenuSeparator {
    implicitHeight: 11
    contentItem: Item {
        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            x: 8
            width: parent.width - 16
            height: 1
            color: Theme.separator
        }
    }
}
