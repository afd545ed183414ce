import QtQuick
import QtQuick.Controls.impl

// A symbol from the desktop's icon theme, or the bundled drawing of the same symbol when the
// theme has none, tinted in one colour.
IconImage {
    // The bundled drawing's name, as in icons/<symbol>.svg.
    required property string symbol
    property real size: 13

    sourceSize: Qt.size(size, size)
    width: size
    height: size
    source: "qrc:/Ravelo/panel/icons/" + symbol + ".svg"
    fillMode: Image.PreserveAspectFit
}
