import QtQuick
import QtQuick.Layouts
import QtQuick.Templates as T
import Tolvera.Views

// Shows a run: its state and its captions.
Rectangle {
    id: live

    required property AppState app
    required property LanguageNames languageNames

    readonly property strings strings: app.settings.strings
    readonly property bool hasLines: app.currentLine !== "" || app.previousLine !== ""

    color: Theme.card

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: header.implicitHeight + 20
            color: Theme.bar

            RowLayout {
                id: header

                anchors.fill: parent
                anchors.leftMargin: 16
                anchors.rightMargin: 16
                anchors.topMargin: 10
                anchors.bottomMargin: 10
                spacing: 10

                SymbolImage {
                    id: waveform

                    name: "waveform"
                    size: Math.round(Theme.body * 1.4)
                    color: Theme.accentSymbol

                    SequentialAnimation on opacity {
                        running: live.app.phase.active && Theme.moves
                        loops: Animation.Infinite
                        alwaysRunToEnd: true

                        NumberAnimation {
                            to: 0.35
                            duration: 700
                            easing.type: Easing.InOutSine
                        }
                        NumberAnimation {
                            to: 1
                            duration: 700
                            easing.type: Easing.InOutSine
                        }
                    }
                }
                LineText {
                    Layout.fillWidth: true
                    Layout.minimumWidth: Math.min(Math.ceil(implicitWidth), header.width * 0.42)
                    Layout.maximumWidth: Math.ceil(implicitWidth)
                    text: live.languageNames.directionText(live.app.settings.source, live.app.settings.target, live.strings)
                    font.pixelSize: Theme.subheadline
                }
                LineText {
                    text: "·"
                    color: Theme.tertiary
                    font.pixelSize: Theme.subheadline
                    Accessible.ignored: true
                }
                LineText {
                    id: status

                    Layout.fillWidth: true
                    text: MainViewRules.statusText(live.strings, live.app.phase)
                    color: Theme.secondary
                    font.pixelSize: Theme.subheadline
                    Accessible.role: MainViewRules.hasFailed(live.app.phase) ? Accessible.AlertMessage : Accessible.Notification
                    onTextChanged: ScreenReader.announce(status, text)
                }
                PushButton {
                    small: true
                    text: live.strings.stop
                    busy: live.app.isStopping
                    tooltip: busy ? live.strings.pick("还在接收最后的字幕", "The last captions are still coming") : ""
                    onClicked: live.app.beginStop()
                }
            }
        }

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 1
            color: Theme.separator
        }

        Flickable {
            id: scroll

            // Stays at the newest words until the reader scrolls away from them, by wheel, bar or touch.
            property bool follows: true

            function toEnd() {
                contentY = Math.max(0, contentHeight - height);
            }

            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: live.hasLines
            contentWidth: width
            contentHeight: transcript.implicitHeight
            boundsBehavior: Flickable.StopAtBounds
            clip: true
            onContentYChanged: if (moving || bar.pressed)
                follows = atYEnd
            onFollowsChanged: if (follows)
                toEnd()
            onContentHeightChanged: {
                follows = follows || contentHeight <= height;
                if (follows)
                    toEnd();
            }
            onHeightChanged: if (follows)
                toEnd()
            T.ScrollBar.vertical: ScrollIndicatorBar {
                id: bar
            }

            Transcript {
                id: transcript

                width: scroll.width
                app: live.app
                seenTop: scroll.contentY
                seenHeight: scroll.height
            }

            Shortcut {
                sequence: "End"
                onActivated: scroll.follows = true
            }
            PushButton {
                parent: scroll
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                anchors.margins: 16
                visible: !scroll.follows
                symbol: "arrow.down"
                tooltip: live.strings.pick("回到最新字幕", "Back to the newest captions")
                cornerRadius: height / 2
                onClicked: scroll.follows = true
            }
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true
            visible: !live.hasLines

            Column {
                anchors.centerIn: parent
                spacing: 10

                SymbolImage {
                    anchors.horizontalCenter: parent.horizontalCenter
                    name: "ear"
                    size: 30
                    color: Theme.tertiary
                }
                Label {
                    width: Math.min(300, live.width - 40)
                    horizontalAlignment: Text.AlignHCenter
                    text: live.strings.pick("已经在听了，说话或播放声音后字幕会出现在这里。", "Listening. Captions appear here once there is speech.")
                    color: Theme.secondary
                    font.pixelSize: Theme.callout
                }
            }
        }
    }
}
