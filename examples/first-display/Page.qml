import QtQuick 2.15
import QtQuick.Window 2.15
import Tessel 1.0

Window {
    visible: true
    ProcessDataSource { id: source; path: Qt.application.arguments[1] }
    ProcessDataListModel { id: values; source: source }
    Text {
        text: source.connected ? "set " + source.generation : source.errorText
        textFormat: Text.PlainText
    }
    ListView {
        anchors { fill: parent; topMargin: 20 }
        model: values
        delegate: Text {
            text: model.url + "  " + model.text + " " + model.unit
            textFormat: Text.PlainText
            color: model.state === Tessel.Valid ? "black" : "red"
        }
    }
}
