import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// A choice of a few, side by side. It shows `value` and reports what the user picks; the owner of the value
// decides. One stop for the Tab key, arrow keys move the choice.
FocusScope {
    id: control

    property string label: ""
    property string tooltip: ""
    property var value
    property var segments: [] // of {text, value}

    signal chosen(var value)

    readonly property int selected: segments.findIndex(segment => segment.value === value)

    implicitWidth: Math.max(160, row.widest * segments.length + 4)
    implicitHeight: Math.max(Theme.controlHeight, row.tallest + 8)
    activeFocusOnTab: true
    Accessible.role: Accessible.Grouping
    Accessible.name: label
    Accessible.description: tooltip

    function choose(index: int) {
        if (index < 0 || index >= segments.length)
            return;
        repeater.itemAt(index).forceActiveFocus(Qt.TabFocusReason);
        if (index !== selected)
            chosen(segments[index].value);
    }

    Keys.onLeftPressed: choose(selected < 0 ? 0 : selected - 1)
    Keys.onRightPressed: choose(selected + 1)
    onActiveFocusChanged: {
        if (activeFocus && repeater.count > 0 && !repeater.itemAt(Math.max(0, selected)).activeFocus)
            repeater.itemAt(Math.max(0, selected)).forceActiveFocus(Qt.TabFocusReason);
    }

    HoverHandler {
        id: hover
    }
    Hint {
        text: control.tooltip
        shown: hover.hovered
    }

    Box {
        anchors.fill: parent
        radius: 7
        color: Theme.track

        FocusRing {
            shown: control.activeFocus && control.keyboardFocus
            cornerRadius: 7
        }
    }

    readonly property bool keyboardFocus: {
        for (let i = 0; i < repeater.count; ++i) {
            const segment = repeater.itemAt(i) as T.RadioButton;
            if (segment && segment.visualFocus)
                return true;
        }
        return false;
    }

    Row {
        id: row

        property real widest: 0
        property real tallest: 0

        anchors.fill: parent
        anchors.margins: 2

        Repeater {
            id: repeater

            model: control.segments

            T.RadioButton {
                id: segment

                required property var modelData
                required property int index
                readonly property bool isSelected: index === control.selected

                width: row.width / control.segments.length
                height: row.height
                text: modelData.text
                leftPadding: 5
                rightPadding: 5
                focusPolicy: Qt.ClickFocus
                hoverEnabled: true
                autoExclusive: false
                checked: isSelected
                Accessible.name: text
                Accessible.checkable: true
                Accessible.checked: isSelected
                Keys.onReturnPressed: control.choose(index)
                Keys.onEnterPressed: control.choose(index)
                onClicked: control.choose(index)

                Component.onCompleted: {
                    row.widest = Math.max(row.widest, caption.implicitWidth + 20);
                    row.tallest = Math.max(row.tallest, caption.implicitHeight);
                }

                contentItem: Text {
                    id: caption

                    text: segment.text
                    font.pixelSize: Theme.subheadline
                    font.weight: segment.isSelected ? Font.Medium : Font.Normal
                    color: Theme.primary
                    textFormat: Text.PlainText
                    horizontalAlignment: Text.AlignHCenter
                    verticalAlignment: Text.AlignVCenter
                    fontSizeMode: Text.HorizontalFit
                    minimumPixelSize: 9
                    Accessible.ignored: true
                }
                background: Box {
                    radius: 5
                    color: segment.isSelected ? Theme.knob : (segment.hovered ? Theme.controlPressed : "transparent")
                    opacity: segment.isSelected || segment.hovered ? 1 : 0
                    borderWidth: segment.isSelected && !Theme.dark ? 1 : 0
                    borderColor: "#1a000000"
                }
            }
        }
    }
}
