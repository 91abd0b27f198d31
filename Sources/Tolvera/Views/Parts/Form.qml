import QtQuick
import QtQuick.Layouts
import QtQuick.Templates as T
import Tolvera.Views

// A form of grouped sections, scrolled when it is taller than its place. Follows the keyboard's focus.
Flickable {
    id: form

    default property alias sections: column.data

    contentWidth: width
    contentHeight: column.implicitHeight + 40
    boundsBehavior: Flickable.StopAtBounds
    clip: true
    T.ScrollBar.vertical: ScrollIndicatorBar {}

    function reveal(item: Item) {
        if (!item)
            return;
        let inside = false;
        for (let above = item; above; above = above.parent)
            inside = inside || above === column;
        if (!inside)
            return;
        const top = item.mapToItem(contentItem, 0, 0).y - 12;
        const bottom = top + item.height + 24;
        if (top < contentY)
            contentY = Math.max(0, top);
        else if (bottom > contentY + height)
            contentY = Math.min(contentHeight - height, bottom - height);
    }

    readonly property Item focused: Window.activeFocusItem
    onFocusedChanged: reveal(focused)

    ColumnLayout {
        id: column

        x: Math.max(18, (form.width - width) / 2)
        y: 18
        width: Math.min(form.width - 36, Math.max(680, Theme.body * 46))
        spacing: 20
    }
}
