import QtQuick
import QtQuick.Templates as T
import Tolvera.Views

// A choice of one among many, listed above the window's content. It shows the item of `value`, or `missing` if
// there is none, and reports what the user picks; the owner of the value decides. A long list can be
// searched by typing; in a short one, a letter moves to the next item that begins with it.
T.ComboBox {
    id: control

    required property string label
    property var items: [] // of {text, value, search?}
    property string noMatch: "" // what a search without a hit shows
    property string missing: "" // what stands for a value that is no item
    property var value
    readonly property int chosenIndex: items.findIndex(item => item.value === value)
    readonly property bool searchable: items.length > 12
    readonly property bool popupVisible: popupList.opened

    signal chosen(var value)
    signal aboutToOpen

    readonly property string text: chosenIndex < 0 ? missing : items[chosenIndex].text

    // The reason with which the focus comes back, by the way the list was opened.
    property int openedBy: Qt.TabFocusReason

    function toggle(by: int) {
        openedBy = by;
        if (popupList.visible)
            popupList.close();
        else {
            aboutToOpen();
            popupList.open();
        }
    }

    displayText: text
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    wheelEnabled: false
    implicitWidth: Math.max(Theme.body * 9, caption.implicitWidth + leftPadding + rightPadding)
    implicitHeight: Theme.controlHeight
    leftPadding: 11
    rightPadding: Theme.body + 14
    opacity: enabled ? 1 : 0.45
    Accessible.name: label
    Accessible.description: text
    Keys.onSpacePressed: toggle(Qt.TabFocusReason)
    Keys.onReturnPressed: toggle(Qt.TabFocusReason)
    Keys.onEnterPressed: toggle(Qt.TabFocusReason)
    Keys.onDownPressed: toggle(Qt.TabFocusReason)
    Keys.onUpPressed: toggle(Qt.TabFocusReason)

    contentItem: Text {
        id: caption

        text: control.text
        font.pixelSize: Theme.body
        color: control.chosenIndex < 0 ? Theme.tertiary : Theme.primary
        textFormat: Text.PlainText
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }

    background: Box {
        radius: 6
        color: area.pressed ? Theme.controlPressed : (control.hovered ? Theme.controlHovered : Theme.control)
        borderWidth: 1
        borderColor: Theme.outline

        SymbolImage {
            anchors.right: parent.right
            anchors.rightMargin: 8
            anchors.verticalCenter: parent.verticalCenter
            name: "chevron.up.chevron.down"
            size: Math.round(Theme.body * 0.95)
            color: Theme.secondary
        }
        FocusRing {
            shown: control.visualFocus
        }
    }

    Hint {
        text: control.text
        shown: control.hovered && caption.truncated && !popupList.visible
    }

    MouseArea {
        id: area

        anchors.fill: parent
        onPressed: control.forceActiveFocus(Qt.MouseFocusReason)
        onClicked: control.toggle(Qt.MouseFocusReason)
    }

    T.Popup {
        id: popupList

        readonly property var found: {
            const query = search.text.trim().toLowerCase();
            if (query === "")
                return control.items;
            return control.items.filter(item => (item.text + " " + (item.search ?? "")).toLowerCase().includes(query));
        }

        function pick(index: int) {
            if (index < 0 || index >= found.length)
                return;
            const picked = found[index].value;
            close();
            control.chosen(picked);
        }

        // The next item that begins with the letter, after the present one.
        function jump(letter: string) {
            for (let step = 1; step <= found.length; ++step) {
                const index = (list.currentIndex + step) % found.length;
                if (found[index].text.toLowerCase().startsWith(letter.toLowerCase())) {
                    list.currentIndex = index;
                    return;
                }
            }
        }

        x: control.width - width
        y: control.height + 4
        margins: 8
        padding: 5
        width: Math.max(control.width, Theme.body * 18)
        height: Math.min(list.contentHeight + field.height + topPadding + bottomPadding, Theme.body * 24,
                         control.Window.height - 16)
        modal: false
        focus: true
        closePolicy: T.Popup.CloseOnEscape | T.Popup.CloseOnPressOutsideParent
        onAboutToShow: {
            search.clear();
            list.currentIndex = control.chosenIndex;
            list.positionViewAtIndex(Math.max(0, control.chosenIndex), ListView.Center);
        }
        onAboutToHide: control.forceActiveFocus(control.openedBy)
        onOpened: (control.searchable ? search : list).forceActiveFocus(Qt.PopupFocusReason)

        background: Box {
            radius: 9
            color: Theme.popup
            borderWidth: 1
            borderColor: Theme.outline
        }

        contentItem: FocusScope {
            Rectangle {
                id: field

                width: parent.width
                height: control.searchable ? Theme.controlHeight + 5 : 0
                visible: control.searchable
                color: "transparent"

                Box {
                    anchors.fill: parent
                    anchors.bottomMargin: 5
                    radius: 6
                    color: Theme.dark ? "#242427" : "#f2f2f5"
                    borderWidth: search.activeFocus ? 2 : 1
                    borderColor: search.activeFocus ? Theme.accentSymbol : Theme.separator

                    SymbolImage {
                        x: 8
                        anchors.verticalCenter: parent.verticalCenter
                        name: "magnifyingglass"
                        size: Theme.body
                        color: Theme.secondary
                    }
                    TextInput {
                        id: search

                        anchors.fill: parent
                        anchors.leftMargin: Theme.body + 14
                        anchors.rightMargin: 8
                        verticalAlignment: TextInput.AlignVCenter
                        clip: true
                        color: Theme.primary
                        font.pixelSize: Theme.body
                        selectionColor: Theme.accent
                        selectedTextColor: "#ffffff"
                        selectByMouse: true
                        Accessible.role: Accessible.EditableText
                        Accessible.name: control.label
                        Accessible.searchEdit: true
                        onTextChanged: list.currentIndex = text === "" ? control.chosenIndex : 0
                        Keys.onDownPressed: list.incrementCurrentIndex()
                        Keys.onUpPressed: list.decrementCurrentIndex()
                        Keys.onReturnPressed: popupList.pick(list.currentIndex)
                        Keys.onEnterPressed: popupList.pick(list.currentIndex)
                    }
                }
            }

            ListView {
                id: list

                anchors.fill: parent
                anchors.topMargin: field.height
                clip: true
                model: popupList.found
                boundsBehavior: Flickable.StopAtBounds
                highlightMoveDuration: 0
                keyNavigationEnabled: true
                Accessible.role: Accessible.List
                Accessible.name: control.label
                Keys.onReturnPressed: popupList.pick(currentIndex)
                Keys.onEnterPressed: popupList.pick(currentIndex)
                Keys.onSpacePressed: popupList.pick(currentIndex)
                Keys.onPressed: event => {
                    // Escape and its like come with a text too, a control character.
                    if (event.text <= " " || control.searchable)
                        return;
                    popupList.jump(event.text);
                    event.accepted = true;
                }

                T.ScrollBar.vertical: ScrollIndicatorBar {}

                footer: Label {
                    visible: list.count === 0
                    width: list.width
                    height: visible ? Math.round(Theme.body * 2) : 0
                    leftPadding: Theme.body + 14
                    verticalAlignment: Text.AlignVCenter
                    text: control.noMatch
                    color: Theme.secondary
                    enabled: false
                }

                delegate: T.ItemDelegate {
                    id: entry

                    required property var modelData
                    required property int index
                    readonly property bool isPointedAt: ListView.isCurrentItem

                    width: list.width
                    implicitHeight: Math.max(Math.round(Theme.body * 2), name.implicitHeight + 8)
                    text: modelData.text
                    hoverEnabled: true
                    focusPolicy: Qt.NoFocus
                    Accessible.name: text
                    Accessible.selected: modelData.value === control.value
                    onHoveredChanged: if (hovered)
                        list.currentIndex = index
                    onClicked: popupList.pick(index)

                    contentItem: Item {
                        SymbolImage {
                            x: 7
                            anchors.verticalCenter: parent.verticalCenter
                            visible: entry.modelData.value === control.value
                            name: "checkmark"
                            size: Math.round(Theme.body * 0.95)
                            color: entry.isPointedAt ? "#ffffff" : Theme.accentSymbol
                        }
                        Text {
                            id: name

                            anchors.left: parent.left
                            anchors.leftMargin: Theme.body + 14
                            anchors.right: parent.right
                            anchors.rightMargin: 12
                            anchors.verticalCenter: parent.verticalCenter
                            text: entry.text
                            font.pixelSize: Theme.body
                            color: entry.isPointedAt ? "#ffffff" : Theme.primary
                            textFormat: Text.PlainText
                            wrapMode: Text.Wrap
                            Accessible.ignored: true
                        }
                    }
                    background: Box {
                        radius: 5
                        color: entry.isPointedAt ? Theme.accent : "transparent"
                    }
                }
            }
        }
    }
}
