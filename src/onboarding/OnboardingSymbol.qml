import QtQuick
import Ravelo
import QtQuick.Layouts
import QtQuick.Controls.impl

// A walkthrough symbol from the bundled icons, drawn in one colour.
IconImage {
    property int size: 24
    property string symbol

    Layout.alignment: Qt.AlignHCenter
    sourceSize: Qt.size(size, size)
    source: "icons/" + symbol + ".svg"
}
