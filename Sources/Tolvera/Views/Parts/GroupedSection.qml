import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// A section of a form: a header above a rounded card that holds rows.
ColumnLayout {
    id: section

    required property string header
    default property alias rows: card.data

    spacing: 7
    Layout.fillWidth: true

    Label {
        Layout.fillWidth: true
        Layout.leftMargin: 14 // as the rows below it
        text: section.header
        color: Theme.secondary
        font.pixelSize: Theme.subheadline
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
    }

    Box {
        Layout.fillWidth: true
        implicitHeight: card.implicitHeight
        radius: 10
        color: Theme.card
        borderWidth: 1
        borderColor: Theme.separator

        Column {
            id: card

            anchors.left: parent.left
            anchors.right: parent.right
        }
    }
}
