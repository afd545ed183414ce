// Another application with a text field, for tests that paste into it: starts with its text
// (the first argument) selected and reports on standard output, one line each, its window
// ("window ID", decimal) once shown, every change of its text ("text TEXT", as JSON string)
// and whether it has the keyboard focus ("active 1" or "active 0").
#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLineEdit>
#include <QTimer>
#include <QWindow>

#include <cstdio>

namespace {

void report(const QByteArray& line)
{
    std::fputs(line.constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("Text field"));
    field.setText(app.arguments().value(1));
    field.selectAll();
    field.resize(400, 40);
    QObject::connect(&field, &QLineEdit::textChanged, [](const QString& text) {
        // A JSON array of one string: the text on one line, whatever it holds.
        const QByteArray json = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
        report("text " + json.mid(1, json.size() - 2));
    });
    field.show();
    QWindow* window = field.windowHandle();
    QObject::connect(window, &QWindow::activeChanged,
                     [window] { report(window->isActive() ? "active 1" : "active 0"); });
    report("window " + QByteArray::number(quint64(field.winId())));
    return app.exec();
}
