import QtQuick
import QtQuick.Layouts
import QtQuick.Templates as T
import Tolvera.Views

// The first row of the caption card. Its height never changes, so that the captions below stand still; while
// there are none, the status goes on below it.
RowLayout {
    id: row

    required property AppState app
    required property bool controlsShown
    required property real statusRoom // for more lines of the status than one; 0 for one line

    signal fontStep(real step)

    readonly property strings strings: app.settings.strings

    height: 18
    spacing: 8

    component PlainButton: T.Button {
        id: button

        required property string tooltip
        property string symbol: ""
        property bool busy: false
        property string description: ""

        Layout.fillHeight: true
        implicitWidth: Math.max(20, contentItem.implicitWidth + 6)
        hoverEnabled: true
        focusPolicy: Qt.NoFocus // the panel never has the keyboard
        opacity: hovered || busy ? 1 : 0.7
        Accessible.name: tooltip
        Accessible.description: description

        // Pressed in an area of at least 24 by 24, as drawn in a smaller one.
        containmentMask: Item {
            x: Math.min(0, (button.width - width) / 2)
            y: (button.height - height) / 2
            width: Math.max(24, button.width)
            height: Math.max(24, button.height)
        }

        contentItem: Item {
            implicitWidth: Math.max(caption.implicitWidth, image.width)

            LineText {
                id: caption

                anchors.centerIn: parent
                text: button.text
                font.pixelSize: 11
                color: "#ffffff"
                Accessible.ignored: true
            }
            SymbolImage {
                id: image

                anchors.centerIn: parent
                visible: button.symbol !== ""
                name: button.symbol
                size: 13
                color: "#ffffff"
            }
        }
        background: Box {
            radius: 4
            color: button.down || button.busy ? "#40ffffff" : (button.hovered ? "#26ffffff" : "transparent")
        }
        Hint {
            text: button.description === "" ? button.tooltip : button.description
            shown: button.hovered
            // Beside the buttons, so that the captions stay free.
            x: smaller.x - button.x - width - 6
            y: (button.height - height) / 2
        }
    }

    Item {
        Layout.fillWidth: true
        Layout.maximumWidth: Math.ceil(status.implicitWidth) + 1
        Layout.fillHeight: true
        implicitWidth: status.implicitWidth
        visible: status.text !== ""

        CopyableText {
            id: status

            readonly property real lineHeight: Math.ceil(12 * 1.2)

            y: Math.floor((parent.height - lineHeight) / 2)
            width: parent.width
            strings: row.strings
            text: row.app.overlayStatus
            maximumLineCount: Math.max(1, Math.floor(row.statusRoom / lineHeight))
            color: MainViewRules.hasFailed(row.app.phase) ? CaptionViewRules.alertColor() : CaptionViewRules.white(0.6)
            selectionColor: "#6679a7ff"
            font.pixelSize: 12
            Accessible.description: MainViewRules.brief(row.app.phase.message)

            HoverHandler {
                id: statusHover
            }
            Hint {
                text: MainViewRules.brief(row.app.phase.message)
                shown: statusHover.hovered && text !== status.text
                // Over the status itself, so that the captions stay free.
                y: (status.height - height) / 2
            }
        }
    }

    Item {
        Layout.fillWidth: true
        Layout.minimumWidth: 0
        Layout.preferredWidth: 0
    }

    CopyableText {
        visible: CaptionViewRules.showsBalance(row.app.secondsLeft)
        strings: row.strings
        text: row.app.balanceText
        color: CaptionViewRules.balanceColor(row.app.secondsLeft)
        selectionColor: "#6679a7ff"
        font.pixelSize: 12
        font.weight: CaptionViewRules.emphasizesBalance(row.app.secondsLeft) ? Font.DemiBold : Font.Normal
        equalDigits: true
    }

    PlainButton {
        id: smaller

        visible: row.controlsShown
        text: "A−"
        tooltip: row.strings.pick("缩小字号", "Smaller text")
        onClicked: row.fontStep(-2)
    }
    PlainButton {
        visible: row.controlsShown
        text: "A+"
        tooltip: row.strings.pick("放大字号", "Larger text")
        onClicked: row.fontStep(2)
    }
    PlainButton {
        visible: row.controlsShown
        symbol: "xmark"
        tooltip: row.strings.pick("停止翻译", "Stop translating")
        busy: row.app.isStopping
        description: busy ? row.strings.pick("还在接收最后的字幕", "The last captions are still coming") : ""
        onClicked: row.app.beginStop()
    }
}
