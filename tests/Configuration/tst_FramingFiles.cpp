#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationDataValue.h"
#include "support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QTemporaryDir>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/resource.h>

namespace {

using Base = ConfigurationAndProcessDataBase;

bool renamingFails = false;

} // namespace

/// Stands before the function of the C library, for the toolkit too, so that the last step of
/// replacing a file can be made to fail for every user, root included.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's are reserved
extern "C" __attribute__((visibility("default"))) int rename(const char *from,
                                                             const char *to) noexcept
{
    if (renamingFails) {
        errno = EIO;
        return -1;
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

namespace {

/// While it lives, no file can be replaced.
class FailingRename
{
public:
    FailingRename() { renamingFails = true; }
    ~FailingRename() { renamingFails = false; }

    FailingRename(const FailingRename &) = delete;
    FailingRename &operator=(const FailingRename &) = delete;
};

/// While it lives, a file takes no more than some bytes, as on a full device.
class LimitedFileSize
{
public:
    explicit LimitedFileSize(rlim_t bytes) : m_formerHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_former);
        rlimit limit = m_former;
        limit.rlim_cur = bytes;
        m_isActive = setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~LimitedFileSize()
    {
        setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, m_formerHandler);
    }

    LimitedFileSize(const LimitedFileSize &) = delete;
    LimitedFileSize &operator=(const LimitedFileSize &) = delete;

    bool isActive() const { return m_isActive; }

private:
    using Handler = void (*)(int);

    Handler m_formerHandler;
    rlimit m_former;
    bool m_isActive = false;
};

/// A leaf whose text takes somewhat more than @p length bytes.
Base::BaseClassSharedPointer leafWithText(int length)
{
    const QJsonObject json{{"type", "string"}, {"value", QString(length, 'x')}};
    return QSharedPointer<ConfigurationDataValue>::create(json, nullptr);
}

QByteArray frame(const Base::BaseClassSharedPointer &root)
{
    QByteArray text;
    ConfigurationAndProcessDataParser().frameToByteArray(root, text, QJsonDocument::Compact);
    return text;
}

bool frameToFile(const Base::BaseClassSharedPointer &root, const QString &path)
{
    return ConfigurationAndProcessDataParser().frameToFile(root, path);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be opened)");
}

/// The message for a @p path at which no save file can be opened.
LogLine openFailure(const QString &path)
{
    QSaveFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Text);
    return warning(
        QStringLiteral("Can't open file  \"%1\"  IO Error:  \"%2\"").arg(path, file.errorString()));
}

LogLine writeFailure(const QString &path)
{
    return warning(QStringLiteral("Error on writing to file! \"%1\"").arg(path));
}

LogLine commitFailure(const QString &path)
{
    return warning(QStringLiteral("Error on commit file! \"%1\"").arg(path));
}

} // namespace

class tst_FramingFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fileHoldsTheCompactText();
    void existingFileIsReplaced();
    void writtenFileParsesBack();
    void anyNameIsWritten();
    void nullRootLeavesTheFile();
    void missingDirectoryIsReported();
    void directoryInPlaceOfTheFileIsReported();
    void shortWriteIsReportedAndCommitted_data();
    void shortWriteIsReportedAndCommitted();
    void failedWriteLeavesTheFile_data();
    void failedWriteLeavesTheFile();
    void textThatJustFitsIsWritten_data();
    void textThatJustFitsIsWritten();
    void failedCommitAfterAWholeWriteIsTrue_data();
    void failedCommitAfterAWholeWriteIsTrue();
    void failedCommitAfterAShortWriteIsFalse();

private:
    QScopedPointer<QTemporaryDir> m_directory;
    QString m_path;
};

void tst_FramingFiles::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_path = m_directory->filePath("a.config.json");
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write("former"), 6);
}

/// Whatever happened, no temporary file stays behind.
void tst_FramingFiles::cleanup()
{
    QCOMPARE(
        QDir(m_directory->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList{"a.config.json"});
    m_directory.reset();
}

void tst_FramingFiles::fileHoldsTheCompactText()
{
    QVERIFY(QFile::remove(m_path));
    const auto root = ConfigurationAndProcessDataParser().parseFromByteArray(
        R"({"value":{"b":{"value":5,"type":"int32"}},"type":"treenode"})", "config.json");
    LogCapture log;

    QVERIFY(frameToFile(root, m_path));

    COMPARE_LOG(log);
    QCOMPARE(readFile(m_path),
             QByteArray(R"({"type":"treenode","value":{"b":{"type":"int32","value":5}}})"));
}

void tst_FramingFiles::existingFileIsReplaced()
{
    const auto root = leafWithText(100);
    LogCapture log;

    QVERIFY(frameToFile(root, m_path));
    QCOMPARE(readFile(m_path), frame(root));
    QVERIFY(frameToFile(leafWithText(3), m_path));
    QCOMPARE(readFile(m_path), QByteArray(R"({"type":"string","value":"xxx"})"));
    COMPARE_LOG(log);
}

void tst_FramingFiles::writtenFileParsesBack()
{
    const ConfigurationAndProcessDataParser parser;
    const QString text = QString::fromUtf8("\xC3\xA4\r\n\t\"\\ \xE2\x82\xAC");
    const Base::BaseClassSharedPointer leaf = QSharedPointer<ConfigurationDataValue>::create(
        QJsonObject{{"type", "string"}, {"value", text}}, nullptr);
    LogCapture log;

    QVERIFY(parser.frameToFile(leaf, m_path));
    const auto parsed = parser.parseFromFile(m_path);

    COMPARE_LOG(log);
    QVERIFY(!parsed.isNull());
    QCOMPARE(parsed->getProperty("value"), QVariant(text));
}

void tst_FramingFiles::anyNameIsWritten()
{
    const QString path = m_directory->filePath("folder");
    LogCapture log;

    QVERIFY(frameToFile(leafWithText(3), path));

    COMPARE_LOG(log);
    QCOMPARE(readFile(path), QByteArray(R"({"type":"string","value":"xxx"})"));
    QVERIFY(QFile::remove(path));
}

void tst_FramingFiles::nullRootLeavesTheFile()
{
    LogCapture log;

    QVERIFY(!frameToFile({}, m_path));

    COMPARE_LOG(log, warning("Root node is undefined!"));
    QCOMPARE(readFile(m_path), QByteArray("former"));
}

void tst_FramingFiles::missingDirectoryIsReported()
{
    const QString path = m_directory->filePath("missing/a.config.json");
    LogCapture log;

    QVERIFY(!frameToFile(leafWithText(3), path));

    COMPARE_LOG(log, warning(QStringLiteral("Can't open file  \"%1\"  IO Error:  "
                                            "\"No such file or directory\"")
                                 .arg(path)));
    QVERIFY(!QFile::exists(m_directory->filePath("missing")));
}

void tst_FramingFiles::directoryInPlaceOfTheFileIsReported()
{
    QVERIFY(QFile::remove(m_path));
    QVERIFY(QDir().mkdir(m_path));
    LogCapture log;

    QVERIFY(!frameToFile(leafWithText(3), m_path));

    COMPARE_LOG(log, openFailure(m_path));
    QVERIFY(QFileInfo(m_path).isDir());
}

void tst_FramingFiles::shortWriteIsReportedAndCommitted_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("fitting");

    // Either side of the 16 kB that the toolkit gathers before it writes.
    QTest::newRow("small") << 100 << 50;
    QTest::newRow("large") << 100000 << 50000;
    QTest::newRow("all but the last byte") << 100 << 127;
}

void tst_FramingFiles::shortWriteIsReportedAndCommitted()
{
    QFETCH(int, length);
    QFETCH(int, fitting);
    const auto root = leafWithText(length);
    const QByteArray text = frame(root);
    QVERIFY(text.size() > fitting);
    bool result = true;
    LogCapture log;

    {
        const LimitedFileSize limit(static_cast<rlim_t>(fitting));
        QVERIFY(limit.isActive());
        result = frameToFile(root, m_path);
    }

    QVERIFY(!result);
    COMPARE_LOG(log, writeFailure(m_path));
    QCOMPARE(readFile(m_path), text.left(fitting));
}

void tst_FramingFiles::failedWriteLeavesTheFile_data()
{
    QTest::addColumn<int>("length");

    QTest::newRow("small") << 100;
    QTest::newRow("large") << 100000;
}

void tst_FramingFiles::failedWriteLeavesTheFile()
{
    QFETCH(int, length);
    bool result = true;
    LogCapture log;

    {
        const LimitedFileSize limit(0);
        QVERIFY(limit.isActive());
        result = frameToFile(leafWithText(length), m_path);
    }

    QVERIFY(!result);
    COMPARE_LOG(log, writeFailure(m_path), commitFailure(m_path));
    QCOMPARE(readFile(m_path), QByteArray("former"));
}

void tst_FramingFiles::textThatJustFitsIsWritten_data()
{
    failedWriteLeavesTheFile_data();
}

void tst_FramingFiles::textThatJustFitsIsWritten()
{
    QFETCH(int, length);
    const auto root = leafWithText(length);
    const QByteArray text = frame(root);
    bool result = false;
    LogCapture log;

    {
        const LimitedFileSize limit(static_cast<rlim_t>(text.size()));
        QVERIFY(limit.isActive());
        result = frameToFile(root, m_path);
    }

    QVERIFY(result);
    COMPARE_LOG(log);
    QCOMPARE(readFile(m_path), text);
}

void tst_FramingFiles::failedCommitAfterAWholeWriteIsTrue_data()
{
    failedWriteLeavesTheFile_data();
}

void tst_FramingFiles::failedCommitAfterAWholeWriteIsTrue()
{
    QFETCH(int, length);
    bool result = false;
    LogCapture log;

    {
        const FailingRename failing;
        result = frameToFile(leafWithText(length), m_path);
    }

    QVERIFY(result);
    COMPARE_LOG(log, commitFailure(m_path));
    QCOMPARE(readFile(m_path), QByteArray("former"));
}

void tst_FramingFiles::failedCommitAfterAShortWriteIsFalse()
{
    bool result = true;
    LogCapture log;

    {
        const FailingRename failing;
        const LimitedFileSize limit(50);
        QVERIFY(limit.isActive());
        result = frameToFile(leafWithText(100), m_path);
    }

    QVERIFY(!result);
    COMPARE_LOG(log, writeFailure(m_path), commitFailure(m_path));
    QCOMPARE(readFile(m_path), QByteArray("former"));
}

QTEST_GUILESS_MAIN(tst_FramingFiles)
#include "tst_FramingFiles.moc"
