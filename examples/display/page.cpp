// Shows a page of QML: display-page PROCESS_DESCRIPTION CONFIGURATION [PICTURE]. All that belongs to
// Tessel stands in Page.qml. With a picture, a PNG file, it is drawn some seconds long, photographed,
// and the program ends.
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QTimer>

#include <cstdlib>

int main(int argc, char *argv[])
{
    const QGuiApplication application(argc, argv);
    const QStringList arguments = QGuiApplication::arguments();
    if (arguments.size() < 3) {
        qCritical("Usage: display-page PROCESS_DESCRIPTION CONFIGURATION [PICTURE]");
        return 2;
    }
    QQmlApplicationEngine engine;
    engine.setInitialProperties(
        {{QStringLiteral("device"), arguments[1]}, {QStringLiteral("settings"), arguments[2]}});
    engine.load(QUrl(QStringLiteral("qrc:/Page.qml")));
    if (engine.rootObjects().isEmpty()) {
        return EXIT_FAILURE;
    }
    auto *const window = qobject_cast<QQuickWindow *>(engine.rootObjects().constFirst());
    QTimer photograph;
    QObject::connect(&photograph, &QTimer::timeout, [&] {
        // Once enough of the trend has been drawn.
        if (window->property("shownSets").toInt() >= 60) {
            QGuiApplication::exit(window->grabWindow().save(arguments[3]) ? EXIT_SUCCESS
                                                                          : EXIT_FAILURE);
        }
    });
    if (arguments.size() > 3) {
        photograph.start(100);
    }
    return QGuiApplication::exec();
}
