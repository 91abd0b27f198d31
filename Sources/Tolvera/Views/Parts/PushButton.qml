import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// A button with a text, a symbol, or both. `highlighted` is the prominent style, `flat` the borderless one.
T.Button {
    id: control

    property bool small: false
    property bool destructive: false
    property string symbol: ""
    property string trailingSymbol: ""
    property string tooltip: ""
    property real cornerRadius: highlighted && !small ? 9 : 6

    readonly property color foreground: {
        if (highlighted)
            return "#ffffff";
        return destructive ? Theme.failure : Theme.primary;
    }

    implicitWidth: Math.max(implicitHeight, contentItem.implicitWidth + leftPadding + rightPadding)
    implicitHeight: Math.max(small ? Theme.smallControlHeight : Theme.controlHeight,
                             contentItem.implicitHeight + topPadding + bottomPadding)
    leftPadding: text === "" ? 5 : (small ? 10 : 14)
    rightPadding: leftPadding
    topPadding: 4
    bottomPadding: 4
    opacity: enabled ? 1 : 0.45
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    font.pixelSize: small ? Theme.subheadline : Theme.body
    font.weight: highlighted ? Font.DemiBold : Font.Normal
    Accessible.name: text === "" ? tooltip : text
    Accessible.description: text === "" ? "" : tooltip

    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    contentItem: Item {
        implicitWidth: (image.visible ? image.width + row.spacing : 0) + (caption.visible ? Math.ceil(caption.implicitWidth) + row.spacing : 0) + (trailing.visible ? trailing.width + row.spacing : 0) - row.spacing
        implicitHeight: Math.max(image.visible ? image.height : 0, caption.visible ? caption.height : 0)

        Row {
            id: row

            anchors.centerIn: parent
            spacing: 6

            SymbolImage {
                id: image

                anchors.verticalCenter: parent.verticalCenter
                visible: control.symbol !== ""
                name: control.symbol
                size: Math.round(Theme.body * 1.25)
                color: control.flat ? Theme.accentSymbol : control.foreground
            }
            Text {
                id: caption

                anchors.verticalCenter: parent.verticalCenter
                visible: control.text !== ""
                width: Math.min(Math.ceil(implicitWidth), control.availableWidth - (image.visible ? image.width + row.spacing : 0) - (trailing.visible ? trailing.width + row.spacing : 0))
                text: control.text
                font: control.font
                color: control.foreground
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                horizontalAlignment: Text.AlignHCenter
                Accessible.ignored: true
            }
            SymbolImage {
                id: trailing

                anchors.verticalCenter: parent.verticalCenter
                visible: control.trailingSymbol !== ""
                name: control.trailingSymbol
                size: Math.round(Theme.body * 0.95)
                color: control.highlighted ? control.foreground : Theme.secondary
            }
        }
    }

    background: Rectangle {
        radius: control.cornerRadius
        color: {
            if (control.highlighted)
                return control.down ? Theme.accentPressed : Theme.accent;
            if (control.down)
                return Theme.controlPressed;
            if (control.flat)
                return control.hovered ? Theme.track : "transparent";
            return control.hovered ? Theme.controlHovered : Theme.control;
        }
        border.width: control.highlighted || control.flat ? 0 : 1
        border.color: Theme.outline

        FocusRing {
            shown: control.visualFocus
            cornerRadius: control.cornerRadius
        }
    }

    Hint {
        text: control.tooltip
        shown: control.hovered && !control.down
    }
}
