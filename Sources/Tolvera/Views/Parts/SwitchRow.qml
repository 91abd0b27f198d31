import QtQuick
import QtQuick.Layouts
import QtQuick.Templates as T
import Tolvera.Views

// A row of a form with a label and a switch, pressed anywhere. It shows `on` and reports what the user
// wants; the owner of the value decides.
FormRow {
    id: row

    required property string label
    required property bool on

    signal toggled(bool on)

    T.CheckBox {
        id: control

        Layout.fillWidth: true
        implicitHeight: Math.max(caption.implicitHeight, track.height)
        text: row.label
        enabled: row.enabled
        checked: row.on
        Accessible.name: text
        Accessible.checkable: true
        Accessible.checked: row.on
        hoverEnabled: true
        focusPolicy: Qt.StrongFocus
        onClicked: row.toggled(!row.on)
        Keys.onReturnPressed: clicked()
        Keys.onEnterPressed: clicked()

        contentItem: Item {
            LineText {
                id: caption

                anchors.left: parent.left
                anchors.right: track.left
                anchors.rightMargin: 12
                anchors.verticalCenter: parent.verticalCenter
                text: row.label
                opacity: control.enabled ? 1 : 0.45
                Accessible.ignored: true
            }
            Box {
                id: track

                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                width: 40
                height: 24
                radius: 12
                color: row.on ? Theme.accent : (Theme.dark ? "#57575e" : "#c9c9d0")
                opacity: control.enabled ? 1 : 0.45

                Behavior on color {
                    enabled: Theme.moves
                    ColorAnimation {
                        duration: Theme.quick
                    }
                }

                Box {
                    x: row.on ? 18 : 2
                    y: 2
                    width: 20
                    height: 20
                    radius: 10
                    color: "#ffffff"

                    Behavior on x {
                        enabled: Theme.moves
                        NumberAnimation {
                            duration: Theme.quick
                            easing.type: Easing.OutCubic
                        }
                    }
                }
                FocusRing {
                    shown: control.visualFocus
                    cornerRadius: 12
                }
            }
        }
    }
}
