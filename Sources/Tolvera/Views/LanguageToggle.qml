import QtQuick
import Tolvera.Views

// Switches the interface language. While the setting follows the system neither segment is marked.
SegmentedControl {
    required property AppSettings settings

    width: 96
    implicitWidth: 96
    label: settings.strings.interfaceLanguage
    tooltip: settings.strings.interfaceLanguage
    value: settings.uiLanguage
    segments: [
        {
            text: "中文",
            value: "chinese"
        },
        {
            text: "EN",
            value: "english"
        }
    ]
    onChosen: value => settings.uiLanguage = value
}
