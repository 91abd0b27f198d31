import QtQuick
import Tolvera.Views

// The ground of a bar that stays at the bottom.
Rectangle {
    color: Theme.bar

    Rectangle {
        width: parent.width
        height: 1
        color: Theme.separator
    }
}
