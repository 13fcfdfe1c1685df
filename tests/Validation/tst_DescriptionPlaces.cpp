#include "Validation/DescriptionPlaces.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using Kind = DescriptionPlaces::Kind;

namespace {

const QByteArray plantText = "{\"type\": \"treenode\",\n"
                             " \"value\": {\n"
                             "  \"pump\": {\"type\": \"treenode\", \"value\": {\n"
                             "    \"ü\": {\"type\": \"int8\"}, \"speed\": {\"type\": \"float\",\n"
                             "      \"value\": {\"inner\": {\"type\": \"int8\"}}}}}}}\n";

/// Files of a test's own.
class Folder
{
public:
    QString path(const QString &name = {}) const
    {
        return name.isEmpty() ? m_dir.path() : m_dir.filePath(name);
    }

    QString write(const QString &name, const QByteArray &text = plantText) const
    {
        QDir(m_dir.path()).mkpath(QFileInfo(name).path());
        QFile file(path(name));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() ? path(name)
                                                                                  : QString();
    }

private:
    QTemporaryDir m_dir;
};

/// FILE:LINE:COLUMN; empty for nothing.
QString textOf(const std::optional<DescriptionPlace> &place)
{
    return place ? QStringLiteral("%1:%2:%3").arg(place->file).arg(place->line).arg(place->column)
                 : QString();
}

QString found(const QString &path, const char *url, Kind kind = Kind::Process)
{
    return textOf(DescriptionPlaces::find(path, QString::fromUtf8(url), kind));
}

} // namespace

class tst_DescriptionPlaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void elementIsFoundAtItsKey_data();
    void elementIsFoundAtItsKey();
    void cellIsFoundWhereItBegins_data();
    void cellIsFoundWhereItBegins();
    void whatIsNoElementIsNotFound_data();
    void whatIsNoElementIsNotFound();
    void whatCannotBeReadHasNoPlace();
    void keyThatStandsTwiceIsFoundWhereItCounts();
    void urlOfAFolderBeginsWithNamesOfFiles();
    void kindChoosesTheFileOfAFolder();
    void fileThatReplacesAnotherIsTheOneThatIsFound();
    void eachOfManyUrlsHasItsOwnPlace();
};

void tst_DescriptionPlaces::elementIsFoundAtItsKey_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QString>("place");
    QTest::newRow("top level") << QByteArray() << QStringLiteral("1:1");
    QTest::newRow("node") << QByteArray("pump") << QStringLiteral("3:3");
    QTest::newRow("leaf") << QByteArray("pump/\xC3\xBC") << QStringLiteral("4:5");
    QTest::newRow("behind characters of two bytes")
        << QByteArray("pump/speed") << QStringLiteral("4:28");
    QTest::newRow("slashes that do not count")
        << QByteArray("/pump//speed/") << QStringLiteral("4:28");
}

void tst_DescriptionPlaces::elementIsFoundAtItsKey()
{
    QFETCH(QByteArray, url);
    QFETCH(QString, place);
    const Folder folder;
    const QString file = folder.write(QStringLiteral("plant.process.json"));

    QCOMPARE(found(file, url.constData()), file + QLatin1Char(':') + place);
}

void tst_DescriptionPlaces::cellIsFoundWhereItBegins_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QString>("place");
    QTest::newRow("the array") << QByteArray("curve") << QStringLiteral("2:2");
    QTest::newRow("number") << QByteArray("curve#0,0") << QStringLiteral("2:40");
    QTest::newRow("text") << QByteArray("curve#0,1") << QStringLiteral("2:43");
    QTest::newRow("another row") << QByteArray("/curve#1,1") << QStringLiteral("3:6");
    QTest::newRow("flat list") << QByteArray("flat#1,0") << QStringLiteral("4:43");
    QTest::newRow("no such column") << QByteArray("curve#0,2") << QString();
    QTest::newRow("no such row") << QByteArray("curve#2,0") << QString();
    QTest::newRow("second column of a flat list") << QByteArray("flat#1,1") << QString();
    QTest::newRow("no array") << QByteArray("plain#0,0") << QString();
}

void tst_DescriptionPlaces::cellIsFoundWhereItBegins()
{
    QFETCH(QByteArray, url);
    QFETCH(QString, place);
    const Folder folder;
    const QByteArray text = "{\"type\": \"treenode\", \"value\": {\n"
                            " \"curve\": {\"type\": \"array\", \"value\": [[1, \"a\"],\n"
                            " [2, \"b\"]]},\n"
                            " \"flat\": {\"type\": \"array\", \"value\": [ 7,  8]},\n"
                            " \"plain\": {\"type\": \"int8\", \"value\": 1}}}\n";
    const QString file = folder.write(QStringLiteral("one.config.json"), text);

    QCOMPARE(found(file, url.constData(), Kind::Configuration),
             place.isEmpty() ? QString() : file + QLatin1Char(':') + place);
    QCOMPARE(found(file, "curve#0,0", Kind::Process), QString());
}

void tst_DescriptionPlaces::whatIsNoElementIsNotFound_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::newRow("unknown") << QByteArray("pump/power");
    QTest::newRow("below a leaf") << QByteArray("pump/speed/inner");
    QTest::newRow("key of the format") << QByteArray("value");
    QTest::newRow("other case") << QByteArray("Pump");
}

void tst_DescriptionPlaces::whatIsNoElementIsNotFound()
{
    QFETCH(QByteArray, url);
    const Folder folder;
    const QString file = folder.write(QStringLiteral("plant.process.json"));

    QCOMPARE(found(file, url.constData()), QString());
}

void tst_DescriptionPlaces::whatCannotBeReadHasNoPlace()
{
    const Folder folder;
    const QString broken = folder.write(QStringLiteral("a.process.json"), "{\"type\": ");
    const QString list = folder.write(QStringLiteral("b.process.json"), "[]");

    QCOMPARE(found(broken, ""), QString());
    QCOMPARE(found(list, ""), QString());
    QCOMPARE(found(folder.path(QStringLiteral("none.process.json")), ""), QString());
    QCOMPARE(found(folder.path(), ""), QString());
    QCOMPARE(found(folder.path(), "none/pump"), QString());
}

void tst_DescriptionPlaces::keyThatStandsTwiceIsFoundWhereItCounts()
{
    const Folder folder;
    const QString file = folder.write(QStringLiteral("plant.process.json"),
                                      "{\"type\": \"treenode\", \"value\": {\n"
                                      "\"a\": {\"type\": \"int8\"},\n"
                                      "\"a\": {\"type\": \"int16\"}}}\n");

    QCOMPARE(found(file, "a"), file + QStringLiteral(":3:1"));
}

void tst_DescriptionPlaces::urlOfAFolderBeginsWithNamesOfFiles()
{
    const Folder folder;
    const QString file = folder.write(QStringLiteral("inputs/channel1.v2.process.json"));

    QCOMPARE(found(folder.path(), "inputs/channel1/pump"), file + QStringLiteral(":3:3"));
    QCOMPARE(found(folder.path(), "inputs/channel1"), file + QStringLiteral(":1:1"));
    QCOMPARE(found(folder.path(), "inputs"), QString());
}

void tst_DescriptionPlaces::kindChoosesTheFileOfAFolder()
{
    const Folder folder;
    const QString process = folder.write(QStringLiteral("a.process.json"));
    const QString configuration = folder.write(QStringLiteral("a.config.json"));

    QCOMPARE(found(folder.path(), "a/pump"), process + QStringLiteral(":3:3"));
    QCOMPARE(found(folder.path(), "a/pump", Kind::Configuration),
             configuration + QStringLiteral(":3:3"));
}

void tst_DescriptionPlaces::fileThatReplacesAnotherIsTheOneThatIsFound()
{
    const Folder folder;
    folder.write(QStringLiteral("a.one.process.json"));
    const QString later = folder.write(QStringLiteral("a.two.process.json"));

    QCOMPARE(found(folder.path(), "a/pump"), later + QStringLiteral(":3:3"));
}

void tst_DescriptionPlaces::eachOfManyUrlsHasItsOwnPlace()
{
    const Folder folder;
    const QString a = folder.write(QStringLiteral("a.process.json"));
    const QString b = folder.write(QStringLiteral("sub/b.process.json"),
                                   "{\"type\": \"treenode\","
                                   " \"value\": {\n"
                                   "\"z\": {\"type\": \"int8\"},\n"
                                   "\"c\": {\"type\": \"int8\"}}}\n");
    const QStringList urls = {QStringLiteral("sub/b/z"),    QStringLiteral("a/pump/speed"),
                              QStringLiteral("sub/b/none"), QStringLiteral("sub/b/c"),
                              QStringLiteral("a/pump"),     QStringLiteral("sub/b/z")};
    const QStringList expected = {
        b + QStringLiteral(":2:1"), a + QStringLiteral(":4:28"), QString(),
        b + QStringLiteral(":3:1"), a + QStringLiteral(":3:3"),  b + QStringLiteral(":2:1")};

    const auto places = DescriptionPlaces::findAll(folder.path(), urls, Kind::Process);

    QStringList found;
    for (const auto &place : places) {
        found.append(textOf(place));
    }
    QCOMPARE(found, expected);
    QVERIFY(DescriptionPlaces::findAll(folder.path(), {}, Kind::Process).isEmpty());
}

QTEST_GUILESS_MAIN(tst_DescriptionPlaces)
#include "tst_DescriptionPlaces.moc"
