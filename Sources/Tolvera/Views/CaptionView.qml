import QtQuick
import Tolvera.Views

// The content of the floating panel: a dark card with the status, the time when it runs low, and the
// captions. The pointer over it brings up three controls. The window gets a press beside the text and the
// controls.
Item {
    id: view

    required property AppState app
    // The pointer is at the window's edges, which lie above the view.
    property bool atEdge: false
    // The pointer is over the view.
    property bool hovering: hover.hovered || atEdge

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
        statusRoom: captions.isEmpty ? view.height - y - 12 : 0
        onFontStep: step => view.adjustFont(step)
    }

    // What there is room for, in whole lines. When room is short, the oldest lines go first. They go out of sight
    // and are not hidden, so that they stay in the accessibility tree.
    Item {
        id: captions

        readonly property real room: height - 12
        readonly property bool isEmpty: source.text + previous.text + current.text + current.tail === ""
        // Between two sentences the last one is still being read.
        readonly property SelectableText newest: current.text + current.tail === "" && previous.visible ? previous : current
        readonly property real sourceRoom: source.visible ? source.height + 6 : 0
        readonly property bool hasSource: source.visible && sourceRoom + newest.height <= room
        readonly property bool hasPrevious: previous.visible && (newest === previous || sourceRoom + previous.height + 2 + current.height <= room)
        // Above the newest lines that there is room for: all of them, the last one, or that one's lower part,
        // where the letters are.
        readonly property real cut: {
            if (newest.height <= room)
                return 0;
            const last = newest.lastLineTop;
            return newest.height - last <= room ? last : Math.max(last, newest.lastBaseline - room);
        }
        readonly property real sentencesTop: hasSource ? sourceRoom : -cut
        readonly property real outOfSight: -2 * view.height

        anchors.left: topRow.left
        anchors.right: topRow.right
        anchors.top: topRow.bottom
        anchors.topMargin: 6
        anchors.bottom: parent.bottom
        clip: true

        Line {
            id: source

            y: captions.hasSource ? 0 : captions.outOfSight
            visible: view.app.settings.showSource && text !== ""
            text: view.app.sourceLine
            elidesHead: true
            color: CaptionViewRules.white(0.62)
            font.pixelSize: view.fontSize * 0.68
        }
        Line {
            id: previous

            y: captions.hasPrevious ? captions.sentencesTop : captions.outOfSight
            visible: text !== ""
            text: view.app.previousLine
            elidesHead: true
            color: CaptionViewRules.white(0.45)
            font.pixelSize: view.fontSize
            font.weight: Font.Medium
        }
        Line {
            id: current

            y: captions.sentencesTop + (captions.hasPrevious ? previous.height + 2 : 0)
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
