// The example device on one page: its values with their states, a trend, and a form for the
// configuration of a channel.
import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import QtQuick.Window 2.15
import Tessel 1.0

Window {
    id: page

    property string device
    property string settings
    property int shownSets: 0

    // Names, units and texts come from elsewhere, and must not be taken for markup.
    component PlainLabel: Label { textFormat: Text.PlainText }

    // A state is told by a symbol as well as by a colour.
    function colourOf(state) {
        return state === Tessel.Valid ? "#2e7d32"
             : state === Tessel.Underrange || state === Tessel.Overrange ? "#b26a00" : "#c62828"
    }
    function symbolOf(state) {
        return state === Tessel.Valid ? "●"
             : state === Tessel.Underrange ? "▼" : state === Tessel.Overrange ? "▲" : "✖"
    }

    function textOf(text, value, type) {
        const isFloating = type === "double" || type === "float"
        return isFloating && value !== undefined ? value.toFixed(2) : text
    }

    width: 940
    height: 520
    visible: true
    title: "Device"

    ProcessDataSource {
        id: source
        path: page.device
        onGenerationChanged: {
            page.shownSets += 1
            trend.add()
        }
    }
    ProcessDataListModel { id: values; source: source; rootUrl: "inputs" }
    ProcessDataItem { id: temperature; source: source; url: "inputs/channel1/value" }
    ConfigurationModel { id: configuration; path: page.settings }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12

        PlainLabel {
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            color: source.connected ? "#2e7d32" : "#c62828"
            text: source.connected ? "● connected, set " + source.generation
                                   : "✖ " + source.errorText
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 16

            ListView {
                Layout.fillHeight: true
                Layout.preferredWidth: 470
                clip: true
                model: values
                delegate: RowLayout {
                    width: ListView.view.width
                    PlainLabel { text: model.url; Layout.preferredWidth: 180; elide: Text.ElideLeft }
                    PlainLabel {
                        text: page.textOf(model.text, model.value, model.type) + " " + model.unit
                        horizontalAlignment: Text.AlignRight
                        Layout.fillWidth: true
                        elide: Text.ElideRight
                    }
                    PlainLabel {
                        text: page.symbolOf(model.state)
                        color: page.colourOf(model.state)
                        Layout.preferredWidth: 20
                    }
                    PlainLabel {
                        text: model.valid ? "" : model.stateName
                        color: page.colourOf(model.state)
                        Layout.preferredWidth: 130
                        elide: Text.ElideRight
                    }
                }
            }
            ColumnLayout {
                Layout.fillWidth: true
                Layout.alignment: Qt.AlignTop

                PlainLabel {
                    text: temperature.url + "  "
                          + page.textOf(temperature.text, temperature.value, temperature.type)
                          + " " + temperature.unit
                }
                Trend { id: trend; item: temperature; Layout.fillWidth: true }

                Repeater {
                    model: configuration
                    delegate: RowLayout {
                        visible: model.type !== undefined && model.type !== "array"
                        PlainLabel { text: model.name; Layout.preferredWidth: 90 }
                        TextField {
                            text: model.text === undefined ? "" : model.text
                            enabled: model.readOnly !== true
                            selectByMouse: true
                            Layout.preferredWidth: 170
                            onEditingFinished: configuration.write(model.url, text)
                        }
                        PlainLabel {
                            text: model.statusText === undefined ? "" : model.statusText
                            color: model.status > Tessel.ConfigurationUnchanged ? "#c62828" : "#2e7d32"
                        }
                    }
                }
                RowLayout {
                    Button {
                        text: "Save"
                        enabled: configuration.modified && !configuration.saving
                        onClicked: configuration.save()
                    }
                    PlainLabel { text: configuration.errorText; color: "#c62828" }
                }
            }
        }
    }
}
