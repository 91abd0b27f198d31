import QtQuick
import Tolvera.Views

// Text that a user selects with the pointer or the keyboard and copies by shortcut, middle click or menu.
SelectableText {
    id: control

    required property strings strings

    activeFocusOnTab: true
    Accessible.role: Accessible.StaticText
    Accessible.name: text + tail
    onMenuRequested: point => {
        menu.active = true;
        (menu.item as PopUpMenu).popup(control, point);
    }

    FocusRing {
        shown: control.visualFocus
        cornerRadius: 2
    }

    Loader {
        id: menu

        active: false
        sourceComponent: PopUpMenu {
            MenuEntry {
                text: control.strings.pick("拷贝", "Copy")
                onTriggered: {
                    if (control.selectedText === "")
                        control.selectAll();
                    control.copy();
                }
            }
        }
    }
}
