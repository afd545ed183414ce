// Renders the application's SVG icon into the PNG sizes of the hicolor icon theme, at build
// time, so that the bitmaps always match the SVG.
//
//     ravelo_render_icon ICON.svg OUTPUT_DIR SIZE...
//
// writes OUTPUT_DIR/<SIZE>x<SIZE>/apps/<name of ICON>.png for every size.

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char* argv[])
{
    // No display is needed to draw into an image.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() < 4) {
        std::fputs("Usage: ravelo_render_icon ICON.svg OUTPUT_DIR SIZE...\n", stderr);
        return 2;
    }
    QSvgRenderer renderer(args.at(1));
    if (!renderer.isValid()) {
        std::fprintf(stderr, "Cannot read the SVG icon %s\n", qPrintable(args.at(1)));
        return 1;
    }
    const QString name = QFileInfo(args.at(1)).completeBaseName();
    for (qsizetype i = 3; i < args.size(); ++i) {
        bool ok = false;
        const int size = args.at(i).toInt(&ok);
        if (!ok || size <= 0) {
            std::fprintf(stderr, "Not an icon size: %s\n", qPrintable(args.at(i)));
            return 2;
        }
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, size, size));
        painter.end();

        const QString dir = QStringLiteral("%1/%2x%2/apps").arg(args.at(2)).arg(size);
        const QString file = dir + QLatin1Char('/') + name + QStringLiteral(".png");
        if (!QDir().mkpath(dir) || !image.save(file, "PNG")) {
            std::fprintf(stderr, "Cannot write %s\n", qPrintable(file));
            return 1;
        }
    }
    return 0;
}
