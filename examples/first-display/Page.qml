import QtQuick 2.15
import QtQuick.Window 2.15
import Tessel 1.0

Window {
    visible: true
    ProcessDataSource { id: source; path: Qt.application.arguments[1] }
    ProcessDataListModel { id: values; source: source }
    Text { text: source.connected ? "set " + source.generation : source.errorText }
    ListView {
        anchors { fill: parent; topMargin: 20 }
        model: values
        delegate: Text {
            text: model.url + "  " + model.text + " " + model.unit
            color: model.state === Tessel.Valid ? "black" : "red"
        }
    }
}
