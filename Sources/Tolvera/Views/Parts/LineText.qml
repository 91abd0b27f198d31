import QtQuick
import Tolvera.Views

// A label beside others. Its line is as high as its font's, with the baseline in the same place, also where its
// letters come from another font; so texts that are centred in a row have one baseline.
Item {
    id: line

    property alias text: label.text
    property alias color: label.color
    property alias font: label.font
    property alias elide: label.elide
    property alias wrapMode: label.wrapMode
    readonly property alias truncated: label.truncated

    implicitWidth: label.implicitWidth
    implicitHeight: label.lineCount > 1 ? label.y + label.implicitHeight : Math.ceil(metrics.height)
    Accessible.role: Accessible.StaticText
    Accessible.name: text

    FontMetrics {
        id: metrics

        font: label.font
    }
    Label {
        id: label

        y: Math.round(metrics.ascent) - Math.round(baselineOffset)
        width: line.width
        Accessible.ignored: true
    }
}
