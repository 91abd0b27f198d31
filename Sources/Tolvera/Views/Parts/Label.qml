import QtQuick
import Tolvera.Views

// Plain text in the primary colour, wrapping where it has to.
Text {
    color: Theme.primary
    font.pixelSize: Theme.body
    textFormat: Text.PlainText
    wrapMode: Text.Wrap
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
