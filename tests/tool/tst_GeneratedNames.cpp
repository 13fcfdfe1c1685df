#include <QProcess>
#include <QtTest>

namespace {

/// What the compiler says of a program that reads the values of accessors, and how it ends.
struct Verdict
{
    int exitCode;
    QString messages;
};

Verdict compile(const QStringList &accessors)
{
    QString program = QStringLiteral("#include \"oddNames.hpp\"\n"
                                     "void take(const my::odd::Values &values, double &value, "
                                     "my::odd::State &state)\n"
                                     "{\n");
    for (const auto &accessor : accessors) {
        program += QStringLiteral("    values->%1.read(value, state);\n").arg(accessor);
    }
    program += QStringLiteral("}\n");
    QStringList arguments{QStringLiteral("-std=c++17"), QStringLiteral("-fPIC"),
                          QStringLiteral("-fsyntax-only")};
    const QStringList folders = QStringLiteral(INCLUDE_FOLDERS).split(QLatin1Char('|'));
    for (const auto &folder : folders) {
        arguments.append(QStringLiteral("-I") + folder);
    }
    QProcess compiler;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    compiler.setProcessEnvironment(environment);
    compiler.start(
        QStringLiteral(COMPILER),
        arguments + QStringList{QStringLiteral("-x"), QStringLiteral("c++"), QStringLiteral("-")});
    compiler.write(program.toUtf8());
    compiler.closeWriteChannel();
    constexpr int longestWait = 120 * 1000;
    if (!compiler.waitForFinished(longestWait)) {
        return {-1, compiler.errorString()};
    }
    return {compiler.exitCode(), QString::fromUtf8(compiler.readAllStandardError())};
}

} // namespace

/// The names of a header that `tessel gen cpp` has made, as the compiler judges them.
class tst_GeneratedNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rightNamesCompile();
    void misspeltNamesDoNot();
};

void tst_GeneratedNames::rightNamesCompile()
{
    const Verdict verdict = compile({QStringLiteral("units.a"), QStringLiteral("units.b_c")});

    QCOMPARE(verdict.messages, QString());
    QCOMPARE(verdict.exitCode, 0);
}

void tst_GeneratedNames::misspeltNamesDoNot()
{
    // A leaf, and a node.
    const Verdict verdict = compile({QStringLiteral("units.bc"), QStringLiteral("unit.a")});

    QVERIFY(verdict.exitCode > 0);
    for (const char *misspelt : {"bc", "unit"}) {
        const QString error = QStringLiteral("no member named '%1'").arg(QLatin1String(misspelt));
        QVERIFY2(verdict.messages.contains(error), qPrintable(verdict.messages));
    }
    // There is no other reason.
    QCOMPARE(verdict.messages.count(QStringLiteral("error: ")), 2);
}

QTEST_GUILESS_MAIN(tst_GeneratedNames)
#include "tst_GeneratedNames.moc"
