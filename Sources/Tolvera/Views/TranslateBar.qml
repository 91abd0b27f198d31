import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// The bar below the form: the last failure, the start button, the balance and the packs to buy.
BottomBar {
    id: bar

    required property AppState app
    readonly property strings strings: app.settings.strings

    implicitHeight: column.implicitHeight + 28

    ColumnLayout {
        id: column

        anchors.fill: parent
        anchors.leftMargin: 18
        anchors.rightMargin: 18
        anchors.topMargin: 14
        anchors.bottomMargin: 14
        spacing: 10

        ColumnLayout {
            visible: MainViewRules.hasFailed(bar.app.phase)
            spacing: 6
            Layout.fillWidth: true

            Label {
                id: failure

                // Given outright: a layout asks for the height before it has settled the width.
                Layout.preferredWidth: column.width
                Layout.fillWidth: true
                text: MainViewRules.brief(bar.app.phase.message)
                color: Theme.failure
                font.pixelSize: Theme.callout
                Accessible.role: Accessible.AlertMessage
                onTextChanged: ScreenReader.announce(failure, text)
            }
            PushButton {
                visible: MainViewRules.offersSystemSettings(bar.app.phase.message)
                small: true
                text: bar.strings.forDesktop(bar.strings.pick("打开系统设置", "Open System Settings"), bar.strings.pick("打开声音设置", "Open sound settings"))
                onClicked: bar.app.openMicrophoneSettings()
            }
        }

        Item {
            Layout.fillWidth: true
            implicitHeight: start.implicitHeight

            PushButton {
                id: start

                anchors.fill: parent
                implicitHeight: Math.max(Math.round(Theme.body * 2.7), contentItem.implicitHeight + 12)
                highlighted: true
                text: MainViewRules.buttonTitle(bar.strings, bar.app.secondsLeft)
                enabled: MainViewRules.hasTime(bar.app.secondsLeft)
                font.pixelSize: Math.round(Theme.body * 1.1)
                Accessible.description: obstacle.text
                onClicked: bar.app.beginStart()
            }
            Obstacle {
                id: obstacle

                anchors.fill: parent
                text: MainViewRules.startObstacle(bar.strings, bar.app.secondsLeft, bar.app.knowsAccount)
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8

            LineText {
                Layout.fillWidth: true
                text: bar.strings.timeLeft
                color: Theme.secondary
                font.pixelSize: Theme.subheadline
            }
            BalanceText {
                app: bar.app
                color: MainViewRules.runsLow(bar.app.secondsLeft) ? Theme.failure : Theme.primary
                font.pixelSize: Theme.subheadline
            }
            PushButton {
                id: buy

                small: true
                text: bar.strings.pick("购买时长", "Buy more")
                trailingSymbol: "chevron.down"
                onClicked: menu.visible ? menu.close() : menu.open()
                Keys.onDownPressed: menu.open()
                Keys.onUpPressed: menu.open()

                BuyMenu {
                    id: menu

                    app: bar.app
                    x: buy.width - width
                    y: -height - 4
                }
            }
        }
    }
}
