import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// The interface language, where the program shows itself, and the account.
Item {
    id: pane

    required property AppState app
    property bool confirmingSignOut: false

    readonly property AppSettings settings: app.settings
    readonly property strings strings: settings.strings

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Form {
            Layout.fillWidth: true
            Layout.fillHeight: true

            GroupedSection {
                header: pane.strings.interfaceLanguage

                FormRow {
                    SegmentedControl {
                        Layout.fillWidth: true
                        label: pane.strings.interfaceLanguage
                        value: pane.settings.uiLanguage
                        segments: [
                            {
                                text: pane.strings.pick("跟随系统", "Follow system"),
                                value: "system"
                            },
                            {
                                text: "中文",
                                value: "chinese"
                            },
                            {
                                text: "English",
                                value: "english"
                            }
                        ]
                        onChosen: value => pane.settings.uiLanguage = value
                    }
                }
            }

            GroupedSection {
                header: pane.strings.pick("显示", "Display")

                SwitchRow {
                    label: pane.strings.forDesktop(pane.strings.pick("在菜单栏显示", "Show in menu bar"), pane.strings.pick("在系统托盘显示", "Show in the system tray"))
                    on: pane.settings.menuBarEnabled
                    onToggled: on => pane.settings.menuBarEnabled = on
                }
                SwitchRow {
                    label: pane.strings.pick("在其它 App 上方显示悬浮字幕", "Float captions above other apps")
                    on: pane.settings.overlayEnabled
                    onToggled: on => pane.settings.overlayEnabled = on
                }
                FormRow {
                    continues: true

                    Note {
                        Layout.fillWidth: true
                        text: pane.strings.pick("切到别的 App 时，字幕会浮在最上层；别的 App 全屏也跟着走。", "When you switch away, captions stay on top, following other apps into full screen.")
                    }
                }
            }

            GroupedSection {
                header: pane.strings.pick("账号", "Account")

                FormRow {
                    Label {
                        Layout.fillWidth: true
                        text: pane.strings.timeLeft
                    }
                    BalanceText {
                        app: pane.app
                        color: Theme.secondary
                    }
                }
                FormRow {
                    visible: pane.app.signedIn

                    Label {
                        Layout.fillWidth: true
                        text: pane.strings.pick("已登录", "Signed in")
                    }
                    PushButton {
                        text: pane.strings.pick("退出登录", "Sign out")
                        onClicked: pane.confirmingSignOut = true
                    }
                }
                FormRow {
                    visible: !pane.app.signedIn

                    PushButton {
                        text: pane.strings.signIn
                        onClicked: pane.app.beginSignIn()
                    }
                    Item {
                        Layout.fillWidth: true
                    }
                }
                FormRow {
                    visible: !pane.app.signedIn
                    continues: true

                    Note {
                        Layout.fillWidth: true
                        text: pane.strings.forDesktop(pane.strings.pick("时长存在你的支付宝账号里，和浏览器插件共用同一份。在插件里买过的时长，这台 Mac 上直接能用。", "Your hours live in your Alipay account and are shared with the browser extension. Anything you bought there works here."), pane.strings.pick("时长存在你的支付宝账号里，和浏览器插件共用同一份。在插件里买过的时长，这台电脑上直接能用。", "Your hours live in your Alipay account and are shared with the browser extension. Anything you bought there works here."))
                    }
                }
            }
        }

        BottomBar {
            Layout.fillWidth: true
            implicitHeight: bar.implicitHeight + 24

            RowLayout {
                id: bar

                anchors.fill: parent
                anchors.leftMargin: 18
                anchors.rightMargin: 18
                anchors.topMargin: 12
                anchors.bottomMargin: 12
                spacing: 14

                PushButton {
                    small: true
                    text: pane.strings.pick("隐私政策", "Privacy policy")
                    onClicked: pane.app.openPrivacy()
                }
                Item {
                    Layout.fillWidth: true
                }
                Note {
                    text: pane.strings.versionLine
                }
            }
        }
    }

    ConfirmationDialog {
        shown: pane.confirmingSignOut
        title: pane.strings.pick("退出登录？", "Sign out?")
        message: pane.strings.forDesktop(pane.strings.pick("这台 Mac 会变回未登录状态，时长仍然留在你的支付宝账号里，重新登录就能找回。", "This Mac returns to a signed-out state. Your hours stay with your Alipay account and come back when you sign in again."), pane.strings.pick("这台电脑会变回未登录状态，时长仍然留在你的支付宝账号里，重新登录就能找回。", "This computer returns to a signed-out state. Your hours stay with your Alipay account and come back when you sign in again."))
        action: pane.strings.pick("退出登录", "Sign out")
        cancel: pane.strings.pick("取消", "Cancel")
        onConfirmed: pane.app.beginSignOut()
        onClosed: pane.confirmingSignOut = false
    }
}
