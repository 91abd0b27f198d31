import QtQuick
import QtQuick.Layouts
import Tolvera.Views

// What to translate, into which language, and how.
Form {
    id: controls

    required property AppState app
    required property LanguageNames languageNames

    readonly property AppSettings settings: app.settings
    readonly property strings strings: settings.strings
    readonly property bool fromMicrophone: settings.captureMode.kind === "mic"
    readonly property bool canSpeak: MainViewRules.canSpeak(settings.target)

    function chooseApp(bundleID: string) {
        if (bundleID === "") {
            settings.captureEverything();
            return;
        }
        for (const entry of app.apps) {
            if (entry.bundleID === bundleID) {
                settings.captureApp(entry.bundleID, entry.name);
                return;
            }
        }
    }

    function chooseTarget(code: string) {
        settings.target = code;
        if (!MainViewRules.canSpeak(code))
            settings.dub = false;
    }

    GroupedSection {
        header: controls.strings.pick("翻译什么", "What to translate")

        FormRow {
            SegmentedControl {
                Layout.fillWidth: true
                label: controls.strings.pick("翻译什么", "What to translate")
                value: !controls.fromMicrophone
                segments: [
                    {
                        text: controls.strings.pick("系统声音", "System audio"),
                        value: true
                    },
                    {
                        text: controls.strings.pick("周围环境声音", "Ambient sound"),
                        value: false
                    }
                ]
                onChosen: value => value ? controls.settings.captureEverything() : controls.settings.captureMicrophone()
            }
        }
        FormRow {
            visible: controls.fromMicrophone
            continues: true

            Note {
                Layout.fillWidth: true
                text: controls.strings.pick("麦克风，面对面说话时用，请戴耳机", "Microphone, for talking face to face. Wear headphones")
            }
        }
        PickerRow {
            visible: !controls.fromMicrophone
            label: controls.strings.pick("选择 App", "Choose an app")
            value: controls.settings.captureMode.kind === "app" ? controls.settings.captureMode.bundleID : ""
            items: {
                const items = [
                    {
                        text: controls.strings.pick("全部声音", "Everything"),
                        value: ""
                    }
                ];
                for (const entry of controls.app.apps)
                    items.push({
                        text: MainViewRules.appLabel(entry.name, entry.isPlaying),
                        value: entry.bundleID
                    });
                return items;
            }
            missing: MainViewRules.appLabel(controls.settings.captureMode.name, false)
            onChosen: value => controls.chooseApp(value)
            onAboutToOpen: controls.app.refreshApps()

            PushButton {
                flat: true
                symbol: "arrow.clockwise"
                tooltip: controls.strings.pick("刷新", "Refresh")
                onClicked: controls.app.refreshApps()
            }
        }
    }

    GroupedSection {
        header: controls.strings.pick("语言", "Languages")

        PickerRow {
            label: controls.strings.pick("源语言", "From")
            value: controls.settings.source
            items: controls.languageNames.sources(controls.strings)
            noMatch: controls.strings.pick("无匹配项", "No match")
            onChosen: value => controls.settings.source = value
        }
        PickerRow {
            label: controls.strings.pick("译成", "To")
            value: controls.settings.target
            items: controls.languageNames.sorted(controls.strings)
            noMatch: controls.strings.pick("无匹配项", "No match")
            onChosen: value => controls.chooseTarget(value)
        }
        FormRow {
            visible: controls.fromMicrophone

            Item {
                implicitWidth: swap.implicitWidth
                implicitHeight: swap.implicitHeight

                PushButton {
                    id: swap

                    anchors.fill: parent
                    text: controls.strings.pick("对调方向", "Swap direction")
                    enabled: controls.app.canSwapDirection
                    Accessible.description: obstacle.text
                    onClicked: controls.app.swapDirection()
                }
                Obstacle {
                    id: obstacle

                    anchors.fill: parent
                    text: MainViewRules.swapObstacle(controls.strings, controls.settings.source, controls.app.canSwapDirection)
                }
            }
            Item {
                Layout.fillWidth: true
            }
        }
    }

    GroupedSection {
        header: controls.strings.pick("选项", "Options")

        SwitchRow {
            label: controls.strings.pick("同时显示原文", "Show the original too")
            on: controls.settings.showSource
            onToggled: on => controls.settings.showSource = on
        }
        SwitchRow {
            label: controls.strings.pick("朗读译文", "Speak the translation")
            on: controls.settings.dub
            enabled: controls.canSpeak
            onToggled: on => controls.settings.dub = on
        }
        FormRow {
            visible: controls.fromMicrophone && controls.settings.dub
            continues: true

            SymbolImage {
                Layout.alignment: Qt.AlignTop
                name: controls.app.outputIsBuiltInSpeaker ? "pause.circle" : "headphones"
                size: Math.round(Theme.body * 1.3)
                color: Theme.secondary
            }
            Note {
                Layout.fillWidth: true
                text: controls.app.outputIsBuiltInSpeaker ? controls.strings.pick("没检测到耳机。朗读期间会暂停收音，避免把自己的配音又收回去；这段时间对方说的话会漏掉。戴上耳机就不会暂停。", "No headphones detected. The microphone pauses while the translation is spoken, so it doesn't pick up its own output. Speech during that moment is missed. With headphones it never pauses.") : controls.strings.pick("已检测到耳机，朗读时不会中断收音。", "Headphones detected, so the microphone keeps listening while speaking.")
            }
        }
        FormRow {
            visible: !controls.canSpeak
            continues: true

            Note {
                Layout.fillWidth: true
                text: controls.strings.pick("这个语言不支持朗读", "This language has no spoken output")
            }
        }
        PickerRow {
            visible: controls.canSpeak && controls.settings.dub
            label: controls.strings.pick("音色", "Voice")
            value: controls.settings.voice
            items: controls.languageNames.voices(controls.strings)
            onChosen: value => controls.settings.voice = value
        }
        FormRow {
            visible: controls.canSpeak && controls.settings.dub
            continues: true

            Note {
                Layout.fillWidth: true
                text: controls.strings.pick("按 4 倍消耗时长", "Uses credit 4× faster")
            }
        }
    }
}
