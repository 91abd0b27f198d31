import QtQuick
import QtQuick.Layouts
import QtQuick.Templates as T
import Tolvera.Views

// Greets a new user: where the program lives, how to start it, what it does with sound. The Return key
// presses its button. As large as it asks to be; where there is less room, what stands above the button scrolls.
FocusScope {
    id: view

    required property AppState app

    signal done

    // The window takes its title from here when it is made.
    readonly property string title: strings.pick("托维拉已经装好了", "Tolvera is ready")
    readonly property strings strings: app.settings.strings

    function finish() {
        app.settings.seenOnboarding = true;
        done();
    }

    implicitWidth: 470
    implicitHeight: column.implicitHeight + footer.implicitHeight + 18 + 48
    focus: true
    Keys.onReturnPressed: finish()
    Keys.onEnterPressed: finish()

    Rectangle {
        anchors.fill: parent
        color: Theme.window
    }

    Flickable {
        id: scroll

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.bottom: footer.top
        anchors.margins: 24
        anchors.rightMargin: 6 // its bar stands beside the text
        anchors.bottomMargin: 18
        contentHeight: column.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        interactive: contentHeight > height
        clip: interactive
        T.ScrollBar.vertical: ScrollIndicatorBar {}

        ColumnLayout {
            id: column

            width: scroll.width - 18
            spacing: 18

            RowLayout {
                spacing: 12

                AppLogo {
                    size: 40
                }
                Label {
                    Layout.fillWidth: true
                    text: view.title
                    font.pixelSize: Theme.title2
                    font.weight: Font.DemiBold
                    Accessible.role: Accessible.Heading
                }
                LanguageToggle {
                    Layout.preferredWidth: 96
                    settings: view.app.settings
                }
            }

            Label {
                Layout.fillWidth: true
                text: view.strings.forDesktop(view.strings.pick("托维拉住在屏幕顶部的菜单栏里，不占程序坞，也不会自己开窗口。找右上角的对话气泡图标，点它就能开始。", "Tolvera lives in the menu bar at the top of the screen. It has no Dock icon and opens no window of its own. Look for the speech bubble near the clock and click it to start."), view.strings.pick("托维拉住在系统托盘里，关掉窗口它也还在。找托盘里的对话气泡图标，点它就能开始。没有托盘的桌面上，再启动一次托维拉，窗口就会回来。", "Tolvera lives in the system tray and stays there when its window is closed. Look for the speech bubble and click it to start. On a desktop without a tray, launch Tolvera again and its window comes back."))
                lineHeight: 1.1
            }

            Rectangle {
                Layout.fillWidth: true
                implicitHeight: steps.implicitHeight + 28
                radius: 10
                color: Qt.alpha(Theme.quaternary, Theme.quaternary.a * 0.4)

                ColumnLayout {
                    id: steps

                    anchors.fill: parent
                    anchors.margins: 14
                    spacing: 10

                    Repeater {
                        model: view.strings.onboardSteps

                        RowLayout {
                            id: step

                            required property string modelData
                            required property int index

                            spacing: 10

                            Box {
                                implicitWidth: 18
                                implicitHeight: 18
                                radius: 9
                                color: Theme.accent
                                // On the first line of the text, whose height the font decides.
                                Layout.alignment: Qt.AlignTop
                                Layout.topMargin: Math.round((metrics.height - 18) / 2)

                                Text {
                                    anchors.centerIn: parent
                                    text: step.index + 1
                                    font.pixelSize: Math.min(12, Theme.caption)
                                    font.bold: true
                                    color: "#ffffff"
                                    Accessible.ignored: true
                                }
                            }
                            Label {
                                Layout.fillWidth: true
                                text: step.modelData
                                Accessible.name: (step.index + 1) + ". " + text
                            }
                        }
                    }
                    FontMetrics {
                        id: metrics

                        font.pixelSize: Theme.body
                    }
                }
            }

            Label {
                Layout.fillWidth: true
                text: view.strings.pick("托维拉只在你按下开始之后才采集声音，不录制、不保存。", "Tolvera captures audio only after you press start, and never records or stores it.")
                color: Theme.secondary
                font.pixelSize: Theme.callout
            }
        }
    }

    RowLayout {
        id: footer

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 24

        Item {
            Layout.fillWidth: true
        }
        PushButton {
            highlighted: true
            text: view.strings.pick("知道了", "Got it")
            onClicked: view.finish()
        }
    }
}
