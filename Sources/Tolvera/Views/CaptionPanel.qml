import QtQuick
import Tolvera.Views

// The content of the floating panel's window, which may be larger than the panel.
Item {
    id: window

    required property AppState app
    readonly property Item panel: view
    property alias atEdge: view.atEdge
    property alias hovering: view.hovering
    // Where the panel is in the window.
    property rect frame: Qt.rect(0, 0, width, height)

    CaptionView {
        id: view

        x: window.frame.x
        y: window.frame.y
        width: window.frame.width
        height: window.frame.height
        app: window.app
    }
}
