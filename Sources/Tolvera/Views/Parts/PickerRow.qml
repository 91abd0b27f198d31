import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// A row of a form with a label, a picker, and what else belongs to it.
FormRow {
    id: row

    required property string label
    property alias items: picker.items
    property alias value: picker.value
    property alias noMatch: picker.noMatch
    property alias missing: picker.missing

    signal chosen(var value)
    signal aboutToOpen

    LineText {
        Layout.fillWidth: true
        Layout.minimumWidth: Math.min(implicitWidth, row.width * 0.3)
        text: row.label
        Accessible.ignored: true
    }
    PopUpPicker {
        id: picker

        Layout.maximumWidth: row.width * 0.62
        label: row.label
        onChosen: value => row.chosen(value)
        onAboutToOpen: row.aboutToOpen()
    }
}
