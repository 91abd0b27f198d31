import QtQuick
import Tolvera.Views

// The balance as text, with digits of equal width.
SelectableText {
    required property AppState app

    text: app.balanceText
    color: Theme.primary
    font.pixelSize: Theme.body
    equalDigits: true
    selectable: false
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
