import QtQuick
import Tolvera.Views

// The content of the floating panel: a dark card with the status, the time when it runs low, and the
// captions. The pointer over it brings up three controls. A press beside the text and the controls is left
// to the window.
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

    Column {
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.topMargin: 10
        anchors.bottomMargin: 12
        spacing: 6
        clip: true

        CaptionTopRow {
            width: parent.width
            app: view.app
            controlsShown: view.hovering
            onFontStep: step => view.adjustFont(step)
        }

        Line {
            visible: view.app.settings.showSource && text !== ""
            text: view.app.sourceLine
            elidesHead: true
            color: CaptionViewRules.white(0.62)
            font.pixelSize: view.fontSize * 0.68
        }

        Column {
            width: parent.width
            spacing: 2

            Line {
                visible: text !== ""
                text: view.app.previousLine
                elidesHead: true
                color: CaptionViewRules.white(0.45)
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
