pragma Singleton
import QtQuick
import Tolvera.Views

// Colours, sizes and times of every view, derived from what the desktop asks for.
QtObject {
    readonly property bool dark: Desktop.dark

    readonly property color window: dark ? "#1d1d1f" : "#f2f2f5"
    readonly property color card: dark ? "#2a2a2d" : "#ffffff"
    readonly property color bar: dark ? "#252528" : "#fafafc"
    readonly property color popup: dark ? "#313135" : "#ffffff"
    readonly property color separator: dark ? "#3a3a3e" : "#e4e4e9"
    readonly property color outline: dark ? "#4f4f56" : "#cfcfd6"
    readonly property color control: dark ? "#3b3b40" : "#ffffff"
    readonly property color controlHovered: dark ? "#434349" : "#f6f6f9"
    readonly property color controlPressed: dark ? "#4d4d54" : "#e6e6eb"
    readonly property color track: dark ? "#38383d" : "#e3e3e8"
    readonly property color knob: dark ? "#6b6b73" : "#ffffff"

    readonly property color primary: dark ? "#f3f3f5" : "#1c1c1f"
    readonly property color secondary: dark ? "#b2b2ba" : "#5a5a62"
    readonly property color tertiary: dark ? "#9d9da6" : "#6c6c74"
    readonly property color failure: dark ? "#ff8078" : "#c4271d"
    readonly property color quaternary: dark ? "#35ffffff" : "#1f000000"

    // The one accent: as a ground for white text, and as a colour of symbols and lines.
    readonly property color accent: "#2f6bea"
    readonly property color accentPressed: "#2559c8"
    readonly property color accentSymbol: dark ? "#79a7ff" : "#2f6bea"
    readonly property color selection: dark ? "#4d79a7ff" : "#3d2f6bea"

    // Text styles, in proportion to the desktop's own size.
    readonly property int body: Desktop.textSize
    readonly property int callout: Math.round(body * 0.96)
    readonly property int subheadline: Math.round(body * 0.96)
    readonly property int caption: Math.round(body * 0.88)
    readonly property int title3: Math.round(body * 1.25)
    readonly property int title2: Math.round(body * 1.4)

    // Even, so that edges fall on whole pixels at a scale of 1.5 as well.
    readonly property int controlHeight: 2 * Math.round(body * 1.05)
    readonly property int smallControlHeight: 2 * Math.round(body * 0.9)

    // Milliseconds; 0 when the desktop asks for reduced motion.
    readonly property int quick: Desktop.reducedMotion ? 0 : 110
    readonly property bool moves: !Desktop.reducedMotion
}
