#include "Companion/FileSearch.h"
#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "ProcessDataManagement/DescriptionDirectory.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "support/LogCapture.h"
#include "support/SemaphoreSet.h"

#include <QRandomGenerator>
#include <QRegularExpression>

namespace {

/// Cases; a bound for a generator that makes nothing of use any more.
constexpr int farMoreThanEnough = 2000;

using Access = ConfigurationDataAndProcessDescriptionAccess;
using Definitions = ConfigurationAndProcessDataDefinitions;
using Root = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

const QString postfix = QStringLiteral("process.json");

/// Descriptions that are mostly right, and directories of them that change.
class Generator
{
public:
    explicit Generator(quint32 seed) : m_random(seed) { }

    bool once(int inSoMany) { return m_random.bounded(inSoMany) == 0; }
    int below(int bound) { return m_random.bounded(bound); }

    QJsonObject file(const QString &key)
    {
        QJsonObject json = node(2);
        json.insert(Definitions::getKeyDataPropertyDoubleBuffer(), !once(30));
        json.insert(Definitions::getKeyDataPropertySizeOfSharedMemory(), once(3) ? below(40) : 16);
        json.insert(Definitions::getStrKeyProcessDataMemory(), once(10) ? QString() : key);
        if (once(20)) {
            json.insert(Definitions::getKeyDataPropertySchemeVersion(), below(3));
        }
        if (once(30)) {
            json.remove(once(2) ? Definitions::getStrKeyProcessDataMemory()
                                : Definitions::getKeyDataPropertySizeOfSharedMemory());
        }
        return json;
    }

    /// Some files come, some change, some go.
    void change(const DescriptionDirectory &directory, const QString &key)
    {
        static const QStringList names{"a.process.json", "b.process.json", "deep/c.process.json",
                                       "deep/d.process.json", "deep/er/e.process.json"};
        for (const QString &name : names) {
            if (once(3)) {
                directory.write(name, once(40) ? QByteArray("{\"type\":")
                                               : QJsonDocument(file(key)).toJson());
            } else if (once(12)) {
                QFile::remove(directory.filePath(name));
            } else if (once(12)) {
                // Two files with the same text.
                directory.write(name, directory.read(names.at(below(names.size()))));
            }
        }
    }

private:
    QJsonObject leaf(int position)
    {
        QJsonObject json = Description::leaf(position, 1 << below(3), 4, below(20));
        if (once(40)) {
            json.insert("value", "no number");
        }
        if (once(40)) {
            json.remove(Definitions::getKeyDataPropertyDisplayPosition());
        }
        if (once(100)) {
            json.remove(Definitions::getKeyDataPropertyOffsetSharedMemory());
        }
        return json;
    }

    QJsonObject node(int depth)
    {
        QJsonObject children;
        for (int i = below(4) + (once(20) ? 0 : 1); i > 0; --i) {
            children.insert(QString::number(below(10)),
                            depth > 0 && once(4) ? node(depth - 1) : leaf(below(100)));
        }
        return Description::node(children);
    }

    QRandomGenerator m_random;
};

/// A build in the two steps that are public by themselves.
bool buildInSteps(const QString &prefix, const QString &path, QString &key)
{
    QList<QFileInfo> files;
    searchFilesOnPathRecursive(path, {"*." + postfix}, files);
    int offset = 0;
    QVector<ProcessDataBuilder::SharedMemoryData> records;
    const ProcessDataBuilder builder;
    return builder.updateOffsetFromDir(files, offset, records)
           && builder.updateSizeAndKeyFromDir(prefix, path, key, offset, records);
}

/// Every file is parsed for each of the two walks.
Root parseInSteps(const QString &path)
{
    const QFileInfo directory(path);
    bool doubleBuffer = false;
    int size = -1;
    QString key;
    Root root;
    if (!Access::getSharedMemoryInfoFromDir(directory, doubleBuffer, size, key)
        || !Access::parseDir(root, directory, postfix)) {
        return {};
    }
    root->addProperty(Definitions::getKeyDataPropertyDoubleBuffer(), doubleBuffer);
    root->addProperty(Definitions::getKeyDataPropertySizeOfSharedMemory(), size);
    root->addProperty(Definitions::getStrKeyProcessDataMemory(), key);
    return root;
}

QByteArray frame(const Root &root)
{
    QByteArray text;
    if (!root.isNull()) {
        ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    }
    return text;
}

/// Without the addresses of elements.
QString linesOf(LogCapture &log)
{
    return toText(log.take()).remove(QRegularExpression("\\(0x[0-9a-f]+\\)"));
}

void restore(const DescriptionDirectory &directory, const DescriptionDirectory::Snapshot &contents)
{
    for (auto file = contents.cbegin(); file != contents.cend(); ++file) {
        directory.write(file.key(), file.value());
    }
}

} // namespace

/// Operations on a directory, which go over its files several times, against the same steps one by
/// one, which parse each file each time. Set TESSEL_TEST_SEED to the number of a failed run to have
/// the same cases again.
class tst_DirectoryWalksAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void buildsAgree();
    void parsedDirectoriesAgree();
    void creatingStartsAgree();
    void filesThatAreAlikeBecomeTreesOfTheirOwn();

private:
    quint32 m_seed = 0;
    QString m_prefix;
    QString m_key;
};

void tst_DirectoryWalksAgreement::initTestCase()
{
    bool isGiven = false;
    m_seed = qEnvironmentVariable("TESSEL_TEST_SEED").toUInt(&isGiven);
    if (!isGiven) {
        m_seed = QRandomGenerator::global()->generate();
    }
    qInfo() << "TESSEL_TEST_SEED" << m_seed;
    m_prefix = SemaphoreSet::uniqueKey("walks");
}

void tst_DirectoryWalksAgreement::init()
{
    // One that a build keeps: a new one would have another random tail each time.
    m_key = m_prefix + "Folderdevice12345";
}

void tst_DirectoryWalksAgreement::buildsAgree()
{
    Generator generator(m_seed);
    const DescriptionDirectory directory;
    LogCapture log;
    for (int i = 0; i < 100; ++i) {
        generator.change(directory, m_key);
        const auto before = directory.contents();
        const QString imposedKey = generator.once(5) ? QString::number(i) : m_key;
        QString expectedKey = imposedKey;
        const bool expected = buildInSteps(m_prefix, directory.path(), expectedKey);
        const QString expectedLog = linesOf(log);
        const auto expectedContents = directory.contents();
        restore(directory, before);
        QString key = imposedKey;

        const bool isBuilt = ProcessDataBuilder().buildProcessDataFromDir(m_prefix,
                                                                          directory.path(), key);

        QCOMPARE(linesOf(log), expectedLog);
        QCOMPARE(isBuilt, expected);
        QCOMPARE(key, expectedKey);
        QCOMPARE(directory.contents(), expectedContents);
    }
}

void tst_DirectoryWalksAgreement::parsedDirectoriesAgree()
{
    Generator generator(m_seed);
    const DescriptionDirectory directory;
    LogCapture log;
    int parsed = 0;
    // Longer where the changes lead through many directories that nothing comes of.
    for (int i = 0; i < 100 || (parsed <= 20 && i < farMoreThanEnough); ++i) {
        generator.change(directory, m_key);
        QString key = m_key;
        ProcessDataBuilder().buildProcessDataFromDir(m_prefix, directory.path(), key);
        log.take();
        const Root expected = parseInSteps(directory.path());
        const QString expectedLog = linesOf(log);
        Root root;

        const bool isParsed = Access::parseProcessDir(root, QFileInfo(directory.path()));

        QCOMPARE(linesOf(log), expectedLog);
        QCOMPARE(isParsed, !expected.isNull());
        QCOMPARE(frame(isParsed ? root : Root()), frame(expected));
        log.take();
        parsed += isParsed ? 1 : 0;
    }
    QVERIFY(parsed > 20);
}

void tst_DirectoryWalksAgreement::creatingStartsAgree()
{
    Generator generator(m_seed);
    const DescriptionDirectory directory;
    LogCapture log;
    int started = 0;
    for (int i = 0; i < 60 || (started <= 10 && i < farMoreThanEnough); ++i) {
        generator.change(directory, m_key);
        // Each file has the key already, so that the build with an empty one finds it.
        QString key = m_key;
        ProcessDataBuilder().buildProcessDataFromDir(m_prefix, directory.path(), key);
        if (generator.once(2)) {
            generator.change(directory, m_key);
        }
        log.take();
        const auto before = directory.contents();
        QString foundKey;
        const bool isBuilt = buildInSteps(m_prefix, directory.path(), foundKey);
        if (foundKey != m_key) {
            continue;
        }
        const Root expected = isBuilt ? parseInSteps(directory.path()) : Root();
        const QString expectedLog = linesOf(log);
        const auto expectedContents = directory.contents();
        restore(directory, before);

        ProcessDataManager manager;
        const Root root = manager.createProcessDataFromDir(
            m_prefix, directory.path(), ProcessDataManager::InitTypeSharedMemoryCreate);

        const QString text = linesOf(log);
        QCOMPARE(text.left(expectedLog.size()), expectedLog);
        QCOMPARE(directory.contents(), expectedContents);
        QCOMPARE(root.isNull(), expected.isNull());
        QCOMPARE(frame(root), frame(expected));
        log.take();
        started += root.isNull() ? 0 : 1;
    }
    QVERIFY(started > 10);
}

void tst_DirectoryWalksAgreement::filesThatAreAlikeBecomeTreesOfTheirOwn()
{
    const DescriptionDirectory directory;
    const QJsonObject json = Description::root({{"x", Description::leaf(1, 4, 4, 0)}}, m_key, 8);
    QVERIFY(directory.write("a.process.json", json));
    QVERIFY(directory.write("b.process.json", json));
    Root root;

    QVERIFY(Access::parseProcessDir(root, QFileInfo(directory.path())));

    QVERIFY(root->getLeaf("a/x") != root->getLeaf("b/x"));
    root->getLeaf("a/x")->setProperty(Definitions::getKeyDataPropertyOffsetSharedMemory(), 5);
    QCOMPARE(root->getLeaf("b/x")->getProperty(Definitions::getKeyDataPropertyOffsetSharedMemory()),
             QVariant(0));
}

QTEST_GUILESS_MAIN(tst_DirectoryWalksAgreement)

#include "tst_DirectoryWalksAgreement.moc"
