import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// A button with a text, a symbol, or both. `highlighted` is the prominent style, `flat` the borderless one.
T.Button {
    id: control

    property bool small: false
    property bool destructive: false
    property bool busy: false // looks pressed while what it began is under way
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

    Keys.onReturnPressed: clicked()
    Keys.onEnterPressed: clicked()

    contentItem: Item {
        implicitWidth: row.implicitWidth
        implicitHeight: row.implicitHeight

        Row {
            id: row

            anchors.centerIn: parent
            spacing: 6

            SymbolImage {
                anchors.verticalCenter: parent.verticalCenter
                visible: control.symbol !== ""
                name: control.symbol
                size: Math.round(Theme.body * 1.25)
                color: control.flat ? Theme.accentSymbol : control.foreground
            }
            Text {
                anchors.verticalCenter: parent.verticalCenter
                visible: control.text !== ""
                text: control.text
                font: control.font
                color: control.busy ? Theme.secondary : control.foreground
                textFormat: Text.PlainText
                Accessible.ignored: true
            }
            SymbolImage {
                anchors.verticalCenter: parent.verticalCenter
                visible: control.trailingSymbol !== ""
                name: control.trailingSymbol
                size: Math.round(Theme.body * 0.95)
                color: control.highlighted ? control.foreground : Theme.secondary
            }
        }
    }

    background: Box {
        radius: control.cornerRadius
        color: {
            if (control.highlighted)
                return control.down ? Theme.accentPressed : Theme.accent;
            if (control.down || control.busy)
                return Theme.controlPressed;
            if (control.flat)
                return control.hovered ? Theme.track : "transparent";
            return control.hovered ? Theme.controlHovered : Theme.control;
        }
        borderWidth: control.highlighted || control.flat ? 0 : 1
        borderColor: Theme.outline

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
