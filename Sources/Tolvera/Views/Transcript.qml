import QtQuick
import Tolvera.Views

// The lines of the captions: what was said, the last sentence, and the one under way.
Column {
    id: transcript

    required property AppState app
    // What of the transcript its viewport shows, from its top.
    required property real seenTop
    required property real seenHeight

    padding: 20
    spacing: 14

    component Line: CopyableText {
        width: transcript.width - 2 * transcript.padding
        seen: Qt.rect(0, transcript.seenTop - y, width, transcript.seenHeight)
        strings: transcript.app.settings.strings
        selectionColor: Theme.selection
        font.pixelSize: Theme.title3
    }

    Line {
        visible: transcript.app.settings.showSource && transcript.app.sourceLine !== ""
        text: transcript.app.sourceLine
        color: Theme.secondary
        font.pixelSize: Theme.callout
    }
    Line {
        visible: transcript.app.previousLine !== ""
        text: transcript.app.previousLine
        color: Theme.secondary
    }
    Line {
        text: transcript.app.currentLine
        tail: transcript.app.currentStash
        color: Theme.primary
        tailColor: Theme.tertiary
        font.weight: Font.Medium
    }
}
