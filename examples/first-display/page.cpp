#include <QGuiApplication>
#include <QQmlApplicationEngine>

int main(int argc, char *argv[])
{
    QGuiApplication application(argc, argv);
    QQmlApplicationEngine engine(QStringLiteral("Page.qml"));
    return QGuiApplication::exec();
}
