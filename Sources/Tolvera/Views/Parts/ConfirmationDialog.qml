import QtQuick
import QtQuick.Layouts
import QtQuick.Templates as T
import Tolvera.Views

// Asks before something is done that is hard to take back. Escape and a press beside it cancel.
T.Dialog {
    id: dialog

    required property bool shown
    required property string message
    required property string action
    required property string cancel

    signal confirmed

    parent: T.Overlay.overlay
    anchors.centerIn: parent
    width: Math.min(Theme.body * 27, (parent ? parent.width : 0) - 40)
    implicitHeight: column.implicitHeight + 40
    padding: 20
    modal: true
    focus: true
    visible: shown
    closePolicy: T.Popup.CloseOnEscape | T.Popup.CloseOnPressOutside
    onOpened: cancelButton.forceActiveFocus(Qt.PopupFocusReason)

    T.Overlay.modal: Rectangle {
        color: "#59000000"
    }

    background: Rectangle {
        radius: 12
        color: Theme.popup
        border.width: 1
        border.color: Theme.outline
        Accessible.role: Accessible.Dialog
        Accessible.name: dialog.title
        Accessible.description: dialog.message
    }

    contentItem: ColumnLayout {
        id: column

        spacing: 8

        Label {
            Layout.fillWidth: true
            text: dialog.title
            font.pixelSize: Math.round(Theme.body * 1.1)
            font.weight: Font.DemiBold
        }
        Label {
            Layout.fillWidth: true
            text: dialog.message
            color: Theme.secondary
        }
        RowLayout {
            Layout.topMargin: 10
            Layout.alignment: Qt.AlignRight
            spacing: 10

            PushButton {
                id: cancelButton

                text: dialog.cancel
                onClicked: dialog.close()
            }
            PushButton {
                destructive: true
                text: dialog.action
                onClicked: {
                    dialog.close();
                    dialog.confirmed();
                }
            }
        }
    }
}
