import QtQuick
import Tolvera.Views

// The balance as text, with digits of equal width.
SelectableText {
    required property AppState app

    text: {
        app.settings.strings; // the text is in the language of the moment it is asked for
        return app.formatTime(app.secondsLeft);
    }
    color: Theme.primary
    font.pixelSize: Theme.body
    equalDigits: true
    selectable: false
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
