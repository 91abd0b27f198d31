import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// A row of a section's card: what stands in it side by side, under a line that parts it from the row above.
// A row that `continues` the one above, such as its explanation, has no such line.
Item {
    id: row

    property bool continues: false
    default property alias content: layout.data

    width: parent ? parent.width : 0
    implicitHeight: Math.max(continues ? 0 : Theme.controlHeight + 14, layout.implicitHeight + layout.anchors.topMargin + layout.anchors.bottomMargin)

    Rectangle {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.leftMargin: 14
        height: 1
        color: Theme.separator
        visible: row.y > 0 && !row.continues
    }

    RowLayout {
        id: layout

        anchors.fill: parent
        anchors.leftMargin: 14
        anchors.rightMargin: 14
        anchors.topMargin: row.continues ? 0 : 7
        anchors.bottomMargin: row.continues ? 11 : 7
        spacing: 12
    }
}
