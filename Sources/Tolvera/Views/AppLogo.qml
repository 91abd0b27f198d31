import QtQuick
import Tolvera.Views

// The application's icon, as a square of `size`. It says nothing to assistive tools.
AppIcon {
    required property real size

    implicitWidth: size
    implicitHeight: size
    width: size
    height: size
    Accessible.ignored: true
}
