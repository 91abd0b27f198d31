import QtQuick

// Lies over a control and says why it is disabled, since a disabled control notices no pointer.
Item {
    id: obstacle

    property string text: ""

    visible: text !== ""

    HoverHandler {
        id: pointer
    }
    Hint {
        text: obstacle.text
        shown: pointer.hovered
    }
}
