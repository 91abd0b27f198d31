import QtQuick
import Tolvera.Views

// The content of the floating panel: a dark card with the status, the time when it runs low, and the
// captions. The pointer over it brings up three controls. The window gets a press beside the text and the
// controls.
Item {
    id: view

    required property AppState app
    // The pointer is over the view.
    property bool hovering: hover.hovered

    readonly property strings strings: app.settings.strings
    readonly property real fontSize: app.settings.overlayFontSize

    function adjustFont(step: real) {
        app.settings.overlayFontSize = CaptionViewRules.adjustedFontSize(fontSize, step);
    }

    HoverHandler {
        id: hover
    }

    Box {
        anchors.fill: parent
        radius: 12
        color: "#c7000000"
        borderWidth: 1
        borderColor: "#14ffffff"
    }

    component Line: CopyableText {
        anchors.left: parent.left
        anchors.right: parent.right
        strings: view.strings
        selectionColor: "#6679a7ff"
    }

    CaptionTopRow {
        id: topRow

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.topMargin: 10
        app: view.app
        controlsShown: view.hovering
        onFontStep: step => view.adjustFont(step)
    }

    Item {
        id: captions

        // Whether a line is seen whole at this distance from the top. A line without room is drawn transparent
        // and not hidden, so that it stays in the accessibility tree.
        function hasRoomAt(y: real): bool {
            return rows.y + y > -1;
        }

        anchors.left: topRow.left
        anchors.right: topRow.right
        anchors.top: topRow.bottom
        anchors.topMargin: 6
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 12
        clip: true

        Column {
            id: rows

            // In a panel that is too low for all lines, the oldest are cut off, never the newest.
            y: Math.min(0, captions.height - height)
            width: parent.width
            spacing: 6

            Line {
                visible: view.app.settings.showSource && text !== ""
                text: view.app.sourceLine
                elidesHead: true
                color: captions.hasRoomAt(y) ? CaptionViewRules.white(0.62) : "transparent"
                font.pixelSize: view.fontSize * 0.68
            }

            Column {
                id: sentences

                width: parent.width
                spacing: 2

                Line {
                    visible: text !== ""
                    text: view.app.previousLine
                    elidesHead: true
                    color: captions.hasRoomAt(sentences.y + y) ? CaptionViewRules.white(0.45) : "transparent"
                    font.pixelSize: view.fontSize
                    font.weight: Font.Medium
                }
                Line {
                    text: view.app.currentLine
                    tail: view.app.currentStash
                    maximumLineCount: 2
                    color: CaptionViewRules.white(1)
                    tailColor: CaptionViewRules.white(0.55)
                    font.pixelSize: view.fontSize
                    font.weight: Font.Medium
                }
            }
        }
    }
}
