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
    void misspeltNameDoesNot_data();
    void misspeltNameDoesNot();
};

void tst_GeneratedNames::rightNamesCompile()
{
    const Verdict verdict = compile({QStringLiteral("units.a"), QStringLiteral("units.b_c")});

    QCOMPARE(verdict.messages, QString());
    QCOMPARE(verdict.exitCode, 0);
}

void tst_GeneratedNames::misspeltNameDoesNot_data()
{
    QTest::addColumn<QString>("accessor");
    QTest::addColumn<QString>("misspelt");
    QTest::newRow("leaf") << QStringLiteral("units.bc") << QStringLiteral("bc");
    QTest::newRow("node") << QStringLiteral("unit.a") << QStringLiteral("unit");
}

void tst_GeneratedNames::misspeltNameDoesNot()
{
    QFETCH(QString, accessor);
    QFETCH(QString, misspelt);

    const Verdict verdict = compile({accessor});

    QVERIFY(verdict.exitCode > 0);
    // No other reason than the name.
    const QRegularExpression error(QStringLiteral("no member named '%1'").arg(misspelt));
    QVERIFY2(error.match(verdict.messages).hasMatch(), qPrintable(verdict.messages));
    QCOMPARE(verdict.messages.count(QStringLiteral("error: ")), 1);
}

QTEST_GUILESS_MAIN(tst_GeneratedNames)
#include "tst_GeneratedNames.moc"
