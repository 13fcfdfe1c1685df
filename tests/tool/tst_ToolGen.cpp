#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ToolDescription.h"
#include "ToolFolder.h"
#include "ToolProcess.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using Metadata = ToolDescription::Metadata;

namespace {

ToolResult gen(const QStringList &arguments)
{
    return runTool(QStringList{QStringLiteral("gen"), QStringLiteral("cpp")} + arguments);
}

QString contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

const QString tank = QStringLiteral(EXAMPLES "/publish/tank.process.json");

} // namespace

/// The header that `tessel gen cpp` makes. What it does stands in tst_GeneratedAccess.
class tst_ToolGen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_folder.reset(new QTemporaryDir); }

    void headerIsThatOfTheExample();
    void headerIsWrittenIntoAFile();
    void onlyChosenValuesHaveAccessors();
    void namespaceIsThatOfTheFileOrTheOption();
    void leafWithoutASlotIsLeftOut();
    void textsCannotLeaveTheirComments();
    void commentsAreReadAsTheyStand();
    void urlIsNamedUnitByUnit();
    void fileNameIsNoPlaceForTexts();
    void namespaceIsNoFunction();
    void folderHasAccessorsForItsFiles();
    void dryRunWritesNothing();
    void descriptionIsNotReplaced();
    void defaultDescriptionMayBeLeftOut();
    void wrongUseIsRefused_data();
    void wrongUseIsRefused();
    void missingThingsAreNotFound();
    void folderThatMayNotBeWrittenIsRefused();
    void fullOutputIsAFailure();
    void closedPipeIsNoFailure();

private:
    QString path(const QString &name) const { return m_folder->filePath(name); }

    QScopedPointer<QTemporaryDir> m_folder;
};

void tst_ToolGen::headerIsThatOfTheExample()
{
    const ToolResult result = gen({tank});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, contentOf(QStringLiteral(EXAMPLES "/typed/tank.hpp")));
    QCOMPARE(gen({tank}).output, result.output);
    QCOMPARE(gen({tank, "-o", "-"}).output, result.output);
}

void tst_ToolGen::headerIsWrittenIntoAFile()
{
    const ToolResult result = gen({tank, "-o", path("tank.hpp")});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(contentOf(path("tank.hpp")), gen({tank}).output);
}

void tst_ToolGen::onlyChosenValuesHaveAccessors()
{
    for (const char *url : {"tank/level", "*/lev*", "**/level"}) {
        const QString header = gen({tank, url}).output;

        QVERIFY(header.contains("::tank::leaf::Double level;\n"));
        QVERIFY(!header.contains("temperature"));
    }
    // The layout is that of the whole description all the same.
    const QRegularExpression fingerprint("layoutFingerprint = Q_UINT64_C\\((0x[0-9a-f]{16})\\)");
    QCOMPARE(fingerprint.match(gen({tank, "tank/level"}).output).captured(1),
             fingerprint.match(gen({tank}).output).captured(1));
}

void tst_ToolGen::namespaceIsThatOfTheFileOrTheOption()
{
    QVERIFY(gen({tank}).output.contains("\nnamespace tank {\n"));
    const QString header = gen({tank, "--namespace", "my::plant"}).output;
    QVERIFY(header.contains("\nnamespace my::plant {\n"));
    QVERIFY(header.contains("::my::plant::leaf::Double level;\n"));
    QVERIFY(!header.contains("::tank::"));

    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8);
    const QByteArray text = contentOf(description.write()).toUtf8();
    const QString file = description.write("2nd-class.old.process.json", text);
    QVERIFY(gen({file}).output.contains("\nnamespace n2nd_class {\n"));
}

void tst_ToolGen::leafWithoutASlotIsLeftOut()
{
    ToolDescription description;
    description.add("a", "colour", Metadata::ErrorState, 8);
    description.add("b", "double", Metadata::ErrorState, 8);

    const ToolResult result = gen({description.write()});

    QVERIFY(result.output.contains("    // left out: /// `a`, colour.\n"));
    QVERIFY(result.output.contains("leaf::Double b;\n"));
    QCOMPARE(result.exitCode, 0);
}

void tst_ToolGen::textsCannotLeaveTheirComments()
{
    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8, {{"unit", "m\n#error"}});
    description.add("b", "double", Metadata::ErrorState, 8, {{"unit", "back\\"}});

    const QString header = gen({description.write()}).output;

    QVERIFY(!header.contains("\n#error"));
    QVERIFY(!header.contains("\\\n"));
}

void tst_ToolGen::commentsAreReadAsTheyStand()
{
    ToolDescription description;
    const QString tag = QString::fromUtf8("\xf3\xa0\x81\x81"); // it is not seen
    description.add(QString("a") + QChar(0x202E), "double", Metadata::ErrorState, 8);
    description.add("b" + tag, "double", Metadata::ErrorState, 8);
    description.add(QString("c") + QChar(0xD800), "double", Metadata::ErrorState, 8);

    const QString header = gen({description.write()}).output;

    QVERIFY(header.contains("/// `a\\u202e`, double.\n"));
    QVERIFY(header.contains("/// `b\\udb40\\udc41`, double.\n"));
    QVERIFY(!header.contains(QChar(0x202E)) && !header.contains(tag));
}

void tst_ToolGen::urlIsNamedUnitByUnit()
{
    ToolDescription description;
    description.add(QChar(0xFEFF) + QString("a"), "double", Metadata::ErrorState, 8);
    description.add(QString("b") + QChar(0) + "c", "double", Metadata::ErrorState, 8);
    description.add(QString("°"), "double", Metadata::ErrorState, 8);
    description.add("d?\"", "double", Metadata::ErrorState, 8);
    // As an escape: a reader of JSON drops the mark itself at the beginning of a text.
    const QString text = contentOf(description.write()).replace(QChar(0xFEFF), "\\ufeff");

    const QString header = gen({description.write("units.process.json", text.toUtf8())}).output;

    for (const char *argument :
         {R"(, QStringLiteral("\xfeff" "a")))", R"(, QStringLiteral("b\x0000" "c")))",
          R"(, QStringLiteral("\x00b0" "")))", R"(, QStringLiteral("d\?\"")))"}) {
        QVERIFY2(header.contains(QString(argument) + '\n'), argument);
    }
}

void tst_ToolGen::fileNameIsNoPlaceForTexts()
{
    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8);
    const QByteArray text = contentOf(description.write()).toUtf8();
    const QString plain = gen({description.write("a1b.process.json", text)}).output;

    const QString header =
        gen({description.write("a%1b%3.process.json", text), "--namespace", "a1b"}).output;

    QCOMPARE(header, QString(plain).replace("a1b.process.json", "a%1b%3.process.json"));
}

void tst_ToolGen::namespaceIsNoFunction()
{
    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8);
    const QByteArray text = contentOf(description.write()).toUtf8();

    const QString header = gen({description.write("time.process.json", text)}).output;

    QVERIFY(header.contains("\nnamespace time_ {\n"));
    QCOMPARE(gen({tank, "--namespace", "my::time"}).exitCode, 2);
}

void tst_ToolGen::folderHasAccessorsForItsFiles()
{
    DescriptionDirectory device("device");
    QVERIFY(device.copy(EXAMPLES "/device"));
    QCOMPARE(runBuild(device.path()).exitCode, 0);

    const ToolResult result = gen({device.path(), "inputs/channel1"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.startsWith("// Made by `tessel gen cpp` from device."));
    QVERIFY(result.output.contains("value(tesselRoot, QStringLiteral(\"inputs/channel1/value\"))"));
}

void tst_ToolGen::dryRunWritesNothing()
{
    const ToolResult result = gen({tank, "-o", path("tank.hpp"), "--dry-run"});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output,
             QString("2 values in namespace tank, not written to %1\n").arg(path("tank.hpp")));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!QFile::exists(path("tank.hpp")));
    QCOMPARE(gen({tank, "tank/level", "--dry-run"}).output,
             QString("1 value in namespace tank, not written to -\n"));
}

void tst_ToolGen::descriptionIsNotReplaced()
{
    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8);
    const QString file = description.write();
    const QString former = contentOf(file);

    const ToolResult result = gen({file, "-o", file});

    QCOMPARE(result.exitCode, 2);
    QVERIFY(result.error.contains("is the name of a description"));
    QCOMPARE(contentOf(file), former);
}

void tst_ToolGen::defaultDescriptionMayBeLeftOut()
{
    const ToolResult result = runTool({"gen", "cpp"}, {"TESSEL_DIR=" + tank});

    QCOMPARE(result.error, QString());
    QCOMPARE(result.output, gen({tank}).output);
}

void tst_ToolGen::wrongUseIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    const auto row = [](const QStringList &arguments, const char *text) {
        QTest::newRow(qPrintable(arguments.join(' ')))
            << arguments << QString(text) + "; see 'tessel gen --help'\n";
    };

    row({"cp", tank}, "there is no language 'cp' (did you mean 'cpp'?); cpp is");
    row({"java", tank}, "there is no language 'java'; cpp is");
    row({"cpp"}, "FILE is missing");
    row({}, "LANGUAGE is missing");
    row({"cpp", tank, "--namespace", "my plant"},
        "--namespace takes a name of C++ such as plant or plant::tank, not 'my plant'");
    row({"cpp", tank, "--outptu", "x"}, "unknown option '--outptu' (did you mean '--output'?)");
    row({"cpp", tank, "-o", ""}, "--output is empty; name a file, or - for standard output");
}

void tst_ToolGen::wrongUseIsRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);

    const ToolResult result = runTool(QStringList("gen") + arguments);

    QCOMPARE(result.error, "tessel: gen: " + text);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 2);
}

void tst_ToolGen::missingThingsAreNotFound()
{
    QCOMPARE(gen({path("none.process.json")}).exitCode, 3);
    QCOMPARE(gen({tank, "-o", path("none/tank.hpp")}).exitCode, 3);
    const ToolResult result = gen({tank, "tank/levle"});
    QVERIFY(result.error.contains("(did you mean 'tank/level'?)"));
    QCOMPARE(result.exitCode, 3);
    ToolDescription description;
    description.add("a", "double", Metadata::ErrorState, 8);
    description.setRoot("sizeOfSharedMemory", 0);
    QCOMPARE(gen({description.write()}).exitCode, 9);
}

void tst_ToolGen::folderThatMayNotBeWrittenIsRefused()
{
    if (!makePermissionsCount()) {
        QSKIP("the permissions of files do not count for this user");
    }
    const NarrowPermissions narrow(m_folder->path(), QFile::ReadOwner | QFile::ExeOwner);

    const ToolResult result = gen({tank, "-o", path("tank.hpp")});

    QCOMPARE(result.error,
             QString("tessel: %1: no permission to write it\n").arg(path("tank.hpp")));
    QCOMPARE(result.exitCode, 4);
}

void tst_ToolGen::fullOutputIsAFailure()
{
    QProcess shell;
    shell.start("/bin/sh", {"-c", "exec \"$0\" gen cpp \"$1\" >/dev/full", TESSEL_TOOL, tank});
    QVERIFY(shell.waitForFinished(60000));

    QCOMPARE(shell.exitCode(), 9);
    QCOMPARE(QString::fromUtf8(shell.readAllStandardError()),
             QString("tessel: standard output: No space left on device\n"));
}

void tst_ToolGen::closedPipeIsNoFailure()
{
    QCOMPARE(exitCodeWithoutReader({"gen", "cpp", tank}), 0);
}

QTEST_GUILESS_MAIN(tst_ToolGen)
#include "tst_ToolGen.moc"
