#include "ToolDescription.h"
#include "ToolProcess.h"

#include <QFile>
#include <QProcess>
#include <QtTest>

namespace {

QString projectText(const QString &name)
{
    QFile file(QStringLiteral(PROJECT_FOLDER "/") + name);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("%s cannot be read", qPrintable(name));
    }
    return QString::fromUtf8(file.readAll());
}

/// The marked lines of an example, without the indentation of the function they stand in.
QString snippet(const QString &source, const QString &name)
{
    const QString mark = QStringLiteral("//! [%1]").arg(name);
    constexpr int indentation = 4;
    QString snippet;
    bool isInside = false;
    const auto lines = projectText(source).split(QLatin1Char('\n'));
    for (const auto &line : lines) {
        if (line.trimmed() == mark) {
            isInside = !isInside;
        } else if (isInside) {
            snippet += line.mid(indentation) + QLatin1Char('\n');
        }
    }
    return snippet;
}

} // namespace

/// That the README tells the truth: its code is that of the examples, and these run.
class tst_Readme : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void codeIsThatOfTheExamples_data();
    void codeIsThatOfTheExamples();
    void linksLeadSomewhere_data();
    void linksLeadSomewhere();
    void documentedDescriptionHasNoFault();
    void documentedInfoIsWhatTheToolPrints();
    void whatIsPublishedIsRead();
    void readerWithoutRegionFails();
};

void tst_Readme::codeIsThatOfTheExamples_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("name");
    QTest::newRow("publish") << QStringLiteral("examples/publish/main.cpp")
                             << QStringLiteral("publish");
    QTest::newRow("read") << QStringLiteral("examples/read/main.cpp") << QStringLiteral("read");
}

void tst_Readme::codeIsThatOfTheExamples()
{
    QFETCH(QString, source);
    QFETCH(QString, name);
    const QString code = snippet(source, name);

    QVERIFY(code.count(QLatin1Char('\n')) >= 10);
    QVERIFY2(projectText(QStringLiteral("README.md"))
                 .contains(QStringLiteral("```cpp\n%1```\n").arg(code)),
             qPrintable(QStringLiteral("README.md does not hold:\n") + code));
}

void tst_Readme::linksLeadSomewhere_data()
{
    QTest::addColumn<QString>("document");
    for (const char *document : {"README.md", "docs/tool.md", "docs/description-format.md"}) {
        QTest::newRow(document) << QString::fromLatin1(document);
    }
}

void tst_Readme::linksLeadSomewhere()
{
    QFETCH(QString, document);
    const QString folder = QFileInfo(QStringLiteral(PROJECT_FOLDER "/") + document).path()
                           + QLatin1Char('/');
    const QRegularExpression link(QStringLiteral("\\]\\(([^)#]+)(#[^)]*)?\\)"));
    auto matches = link.globalMatch(projectText(document));

    QVERIFY(matches.hasNext());
    while (matches.hasNext()) {
        const QString target = matches.next().captured(1);
        QVERIFY2(QFile::exists(folder + target), qPrintable(target));
    }
}

void tst_Readme::documentedDescriptionHasNoFault()
{
    const QRegularExpression example(QStringLiteral("```json\n(.*?)```"),
                                     QRegularExpression::DotMatchesEverythingOption);
    const auto match = example.match(projectText(QStringLiteral("docs/description-format.md")));
    QVERIFY(match.hasMatch());
    const ToolDescription folder;
    const QString file = folder.write(QStringLiteral("tank.process.json"),
                                      match.captured(1).toUtf8());

    const ToolResult result = runTool({QStringLiteral("info"), file});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.contains(QStringLiteral("\nLeaves      4\n")));
}

void tst_Readme::documentedInfoIsWhatTheToolPrints()
{
    ToolProcess info({QStringLiteral("info"), QStringLiteral("examples/publish/tank.process.json")},
                     {}, QStringLiteral(PROJECT_FOLDER));
    const ToolResult result = info.finish();

    QCOMPARE(result.exitCode, 0);
    QVERIFY2(projectText(QStringLiteral("docs/tool.md"))
                 .contains(QStringLiteral("$ tessel info examples/publish/tank.process.json\n%1```")
                               .arg(result.output)),
             qPrintable(result.output));
}

void tst_Readme::whatIsPublishedIsRead()
{
    const ToolDescription names;
    QByteArray text = projectText(QStringLiteral("examples/publish/tank.process.json")).toUtf8();
    QCOMPARE(text.count("\"tesselTank\""), 1);
    const QString file = names.write(QStringLiteral("tank.process.json"),
                                     text.replace("tesselTank", names.key().toUtf8()));
    QProcess publish;
    publish.start(QStringLiteral(EXAMPLE_PUBLISH), {file});
    while (!publish.canReadLine() && publish.waitForReadyRead(60000)) { }
    QCOMPARE(publish.readLine(), QByteArrayLiteral("published; Ctrl-D ends\n"));

    QProcess read;
    read.start(QStringLiteral(EXAMPLE_READ), {file});
    QVERIFY(read.waitForFinished(60000));

    QCOMPARE(read.exitCode(), 0);
    QCOMPARE(read.readAllStandardOutput(),
             QByteArrayLiteral("level 1.25 PROCESS_VALUE_ERROR_TYPE_VALID\n"
                               "temperature 0 PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE\n"));
    publish.closeWriteChannel();
    QVERIFY(publish.waitForFinished(60000));
    QCOMPARE(publish.exitCode(), 0);
    QVERIFY(!names.hasSegment());
    QVERIFY(!names.hasSemaphores());
}

void tst_Readme::readerWithoutRegionFails()
{
    const ToolDescription names;
    const QByteArray text =
        projectText(QStringLiteral("examples/publish/tank.process.json")).toUtf8();
    const QString file = names.write(QStringLiteral("tank.process.json"),
                                     QByteArray(text).replace("tesselTank", names.key().toUtf8()));

    QProcess read;
    read.start(QStringLiteral(EXAMPLE_READ), {file});
    QVERIFY(read.waitForFinished(60000));

    QCOMPARE(read.exitStatus(), QProcess::NormalExit);
    QCOMPARE(read.exitCode(), 1);
}

QTEST_GUILESS_MAIN(tst_Readme)
#include "tst_Readme.moc"
