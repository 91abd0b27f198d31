import QtQuick
import Tolvera.Views

// An explanation: small and in the secondary colour.
Label {
    color: Theme.secondary
    font.pixelSize: Theme.caption
    lineHeight: 1.08
}
