import QtQuick
import Tolvera.Views

// Text that a user selects with the pointer or the keyboard and copies by shortcut, middle click or menu.
SelectableText {
    id: copyable

    required property strings strings

    activeFocusOnTab: true
    Accessible.role: Accessible.StaticText
    Accessible.name: spokenText
    onMenuRequested: point => {
        menu.active = true;
        (menu.item as PopUpMenu).popup(copyable, point);
    }

    FocusRing {
        control: copyable.page
        shown: copyable.visualFocus
        cornerRadius: 2
    }

    Loader {
        id: menu

        active: false
        sourceComponent: PopUpMenu {
            MenuEntry {
                text: copyable.strings.pick("拷贝", "Copy")
                onTriggered: {
                    if (copyable.selectedText === "")
                        copyable.selectAll();
                    copyable.copy();
                }
            }
        }
    }
}
