import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// The packs of time on offer, and the sign-in for a user who has not signed in. A list and not a Menu, which
// would make every row at once.
T.Popup {
    id: buyMenu

    required property AppState app
    property real widest: Theme.body * 11

    function choose(row: int) {
        close();
        rows.choose(row);
    }

    width: widest + leftPadding + rightPadding
    height: Math.min(list.contentHeight + topPadding + bottomPadding, Theme.body * 24, (parent ? parent.Window.height : 0) - 2 * margins)
    margins: 6
    padding: 5
    focus: true
    closePolicy: T.Popup.CloseOnEscape | T.Popup.CloseOnPressOutsideParent
    onAboutToShow: list.currentIndex = -1
    onOpened: list.forceActiveFocus(Qt.PopupFocusReason)
    onClosed: parent.forceActiveFocus(Qt.PopupFocusReason)

    contentItem: ListView {
        id: list

        clip: true
        cacheBuffer: 0 // rows out of sight would still be under way when the rows change
        boundsBehavior: Flickable.StopAtBounds
        highlightMoveDuration: 0
        keyNavigationEnabled: true
        Accessible.role: Accessible.PopupMenu
        Accessible.name: buyMenu.app.settings.strings.pick("购买时长", "Buy more")
        Keys.onReturnPressed: currentItem?.triggered()
        Keys.onEnterPressed: currentItem?.triggered()
        Keys.onSpacePressed: currentItem?.triggered()
        T.ScrollBar.vertical: ScrollIndicatorBar {}

        model: BuyRows {
            id: rows

            app: buyMenu.app
        }
        delegate: MenuEntry {
            required property int index
            required property string label
            required property bool isChoosable
            required property bool isDivided

            width: list.width
            text: label
            enabled: isChoosable
            divided: isDivided
            highlighted: ListView.isCurrentItem
            focusPolicy: Qt.NoFocus
            onHoveredChanged: if (hovered)
                list.currentIndex = index
            onImplicitWidthChanged: buyMenu.widest = Math.max(buyMenu.widest, implicitWidth)
            onTriggered: buyMenu.choose(index)
        }
    }

    background: Rectangle {
        radius: 9
        color: Theme.popup
        border.width: 1
        border.color: Theme.outline
    }
}
