#include "HeldRegion.h"
#include "support/LogCapture.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

/// The example that reads by accessors which `tessel gen cpp` has made.
class tst_ExampleTyped : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void publishedLevelIsPrinted();
    void otherLayoutIsToldAndNotRead();
    void regionHasToBeThere();

private:
    QString write() const;
    /// Runs the example. What it said is in @p output and @p error.
    static int run(const QString &file, QString &output, QString &error);

    QScopedPointer<QTemporaryDir> m_folder;
    QByteArray m_text;
};

void tst_ExampleTyped::init()
{
    m_folder.reset(new QTemporaryDir);
    QFile source(QStringLiteral(EXAMPLE_TANK));
    QVERIFY(source.open(QIODevice::ReadOnly));
    m_text = source.readAll();
    m_text.replace("tesselTank",
                   "tesselTyped" + QByteArray::number(QCoreApplication::applicationPid()));
}

QString tst_ExampleTyped::write() const
{
    QFile file(m_folder->filePath("tank.process.json"));
    return file.open(QIODevice::WriteOnly) && file.write(m_text) == m_text.size() ? file.fileName()
                                                                                  : QString();
}

int tst_ExampleTyped::run(const QString &file, QString &output, QString &error)
{
    QProcess example;
    example.start(QStringLiteral(EXAMPLE_TYPED), {file});
    const bool isFinished = example.waitForFinished(60000);
    output = QString::fromUtf8(example.readAllStandardOutput());
    error = QString::fromUtf8(example.readAllStandardError());
    return isFinished ? example.exitCode() : -1;
}

void tst_ExampleTyped::publishedLevelIsPrinted()
{
    const QString file = write();
    const LogCapture log;
    HeldRegion region(file);
    QVERIFY(region.publish("tank/level", validValue(1.25)));
    QString output;
    QString error;

    QCOMPARE(run(file, output, error), 0);
    QCOMPARE(output, QString("level 1.25 PROCESS_VALUE_ERROR_TYPE_VALID\n"));
}

void tst_ExampleTyped::otherLayoutIsToldAndNotRead()
{
    m_text.replace("\"float\"", "\"int32\"");
    const QString file = write();
    const LogCapture log;
    const HeldRegion region(file);
    QString output;
    QString error;

    QCOMPARE(run(file, output, error), 1);
    QCOMPARE(output, QString());
    QVERIFY(
        error.endsWith("the description has another layout than when the accessors were made\n"));
}

void tst_ExampleTyped::regionHasToBeThere()
{
    QString output;
    QString error;

    QCOMPARE(run(write(), output, error), 1);
    QCOMPARE(output, QString());
    QVERIFY(error.endsWith("there is no tree\n"));
}

QTEST_GUILESS_MAIN(tst_ExampleTyped)
#include "tst_ExampleTyped.moc"
