#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "ProblemText.h"
#include "ProcessData/Linux/ProcessDataValue.h"
#include "support/FakeBufferHandler.h"
#include "support/LogCapture.h"

#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>

/// The corpus: broken descriptions with one fault each, and beside each what is found in it. Besides, what
/// has no error.
class tst_DescriptionCorpus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void faultIsFoundAndNothingElse_data();
    void faultIsFoundAndNothingElse();
    void parserAgrees_data();
    void parserAgrees();
    void bindingAgrees_data();
    void bindingAgrees();
    void corpusIsLarge();
    void everyRuleThatFilesCanShowHasACase();
    void examplesHaveNoError_data();
    void examplesHaveNoError();
    void largeFolderHasNoError();
};

namespace {

const QString corpus = QStringLiteral(CORPUS);

QStringList caseNames()
{
    QStringList names;
    const auto files = QDir(corpus).entryInfoList({QStringLiteral("*.expected")}, QDir::Files);
    for (const QFileInfo &file : files) {
        names.append(file.completeBaseName());
    }
    return names;
}

QStringList linesOf(const QString &name, const char *ending)
{
    QFile file(corpus + QLatin1Char('/') + name + QLatin1String(ending));
    return file.open(QIODevice::ReadOnly)
               ? QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)
               : QStringList();
}

QStringList expectedOf(const QString &name)
{
    return linesOf(name, ".expected");
}

/// The file or folder of a case.
QString pathOf(const QString &name)
{
    for (const char *ending : {"", ".process.json", ".config.json"}) {
        const QString path = corpus + QLatin1Char('/') + name + QLatin1String(ending);
        if (QFileInfo::exists(path)) {
            return path;
        }
    }
    return {};
}

void copyFolder(const QString &from, const QString &to)
{
    QDirIterator walk(from, QDir::Files, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString path = walk.next();
        const QString copy = to + path.mid(from.size());
        QDir().mkpath(QFileInfo(copy).path());
        QVERIFY(QFile::copy(path, copy));
    }
}

/// The files of a case where they may get links, which are not kept as such: LINK TARGET, a line each.
QString folderWithLinks(const QString &name, const QString &parent)
{
    copyFolder(corpus + QLatin1Char('/') + name, parent + QLatin1Char('/') + name);
    for (const QString &line : linesOf(name, ".links")) {
        const QString link = parent + QLatin1Char('/') + name + QLatin1Char('/')
                             + line.section(QLatin1Char(' '), 0, 0);
        if (!QFile::link(line.section(QLatin1Char(' '), 1), link)) {
            return {};
        }
    }
    return parent + QLatin1Char('/') + name;
}

/// Binds all leaves, and counts those that read as valid after an error was written.
int countLostStates(const ConfigurationAndProcessDataBase &root)
{
    const QVariant size = root.getProperty(QStringLiteral("sizeOfSharedMemory"));
    // Without a size, and with one that no test takes, any that is large enough will do.
    const quint32 usual = 100;
    const quint32 given = size.isValid() ? size.toUInt() : usual;
    FakeBufferHandler handler(given > 1000 ? usual : given);
    handler.useSingleBuffer();
    ConfigurationAndProcessDataBase::ListElements leaves;
    root.collectElements(leaves, true);
    int lost = 0;
    for (const auto &leaf : std::as_const(leaves)) {
        const auto element = leaf.dynamicCast<ProcessDataValue>();
        element->setBufferHandlerInterface(&handler, true);
        const ProcessValue written(
            QVariant(), ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_SENSOR_BREAKAGE);
        ProcessValue read(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        if (element->setValue(written)) {
            element->getValue(read, false);
            lost += read.getErrorType() == written.getErrorType() ? 0 : 1;
        }
    }
    return lost;
}

QStringList errorsOf(const QString &path)
{
    QStringList errors;
    const auto problems = DescriptionCheck::check({path});
    for (const DescriptionProblem &problem : problems) {
        if (problem.level == DescriptionProblem::Level::Error) {
            errors.append(problemText(problem, {}) + QStringLiteral(": ") + problem.text);
        }
    }
    return errors;
}

} // namespace

void tst_DescriptionCorpus::faultIsFoundAndNothingElse_data()
{
    QTest::addColumn<QString>("name");
    for (const QString &name : caseNames()) {
        QTest::newRow(qPrintable(name)) << name;
    }
}

void tst_DescriptionCorpus::faultIsFoundAndNothingElse()
{
    QFETCH(QString, name);
    LogCapture log;
    QVERIFY(!pathOf(name).isEmpty());
    QVERIFY(!expectedOf(name).isEmpty());
    const QTemporaryDir copies;
    const bool hasLinks = !linesOf(name, ".links").isEmpty();
    const QString folder = hasLinks ? copies.path() : corpus;
    const QString path = hasLinks ? folderWithLinks(name, folder) : pathOf(name);

    QCOMPARE(problemsOf({path}, folder), expectedOf(name));
}

void tst_DescriptionCorpus::parserAgrees_data()
{
    faultIsFoundAndNothingElse_data();
}

/// What the check calls refused or lost in parsing is what the parser refuses and speaks of.
void tst_DescriptionCorpus::parserAgrees()
{
    QFETCH(QString, name);
    const QString path = pathOf(name);
    if (QFileInfo(path).isDir()) {
        return;
    }
    const QString rule = expectedOf(name).constFirst().section(QLatin1Char(' '), 2, 2);
    const QStringList refusing{QStringLiteral("not-json"), QStringLiteral("not-an-object"),
                               QStringLiteral("missing-key"), QStringLiteral("child-not-object")};
    // Its file is parsed, and its region cannot be made.
    const bool isRefused = refusing.contains(rule) && name != QLatin1String("region-without-key");
    LogCapture log;

    const auto root = ConfigurationAndProcessDataParser().parseFromFile(path);

    QCOMPARE(root.isNull(), isRefused);
    const QString messages = toText(log.take());
    QCOMPARE(messages.contains(QStringLiteral("Wrong value type in config")),
             rule == QLatin1String("value-of-type"));
    QCOMPARE(messages.contains(QStringLiteral("incompatible scheme version")),
             rule == QLatin1String("scheme-version"));
}

void tst_DescriptionCorpus::bindingAgrees_data()
{
    faultIsFoundAndNothingElse_data();
}

/// What the check says of a slot is what the bound leaf says and does.
void tst_DescriptionCorpus::bindingAgrees()
{
    QFETCH(QString, name);
    const QString rule = expectedOf(name).constFirst().section(QLatin1Char(' '), 2, 2);
    LogCapture log;
    const auto root = ConfigurationAndProcessDataParser().parseFromFile(pathOf(name));
    if (root.isNull() || !pathOf(name).endsWith(QLatin1String(".process.json"))
        || rule == QLatin1String("root-is-leaf")) {
        return;
    }
    log.take();

    const int lostStates = countLostStates(*root);

    const QString messages = toText(log.take());
    QCOMPARE(messages.contains(QStringLiteral("Wrong size of data type")),
             rule == QLatin1String("size-of-type"));
    QCOMPARE(messages.contains(QStringLiteral("Data type not OK")),
             rule == QLatin1String("unknown-type"));
    const QStringList refused{QStringLiteral("slot-outside-buffer"),
                              QStringLiteral("metadata-outside-buffer")};
    QCOMPARE(messages.contains(QStringLiteral("End of memory reached"))
                 || messages.contains(QStringLiteral("lies outside the buffer")),
             refused.contains(rule));
    // A state that lies in its own value is lost or not as the two are written one after the other.
    if (rule != QLatin1String("distance-into-slot")) {
        QCOMPARE(lostStates, rule == QLatin1String("no-error-state") ? 1 : 0);
    }
}

void tst_DescriptionCorpus::corpusIsLarge()
{
    QVERIFY(caseNames().size() >= 170);
}

void tst_DescriptionCorpus::everyRuleThatFilesCanShowHasACase()
{
    QSet<QString> shown;
    for (const QString &name : caseNames()) {
        for (const QString &line : expectedOf(name)) {
            shown.insert(line.section(QLatin1Char(' '), 2, 2));
        }
    }
    // These need a file without permission, a FIFO, two folders, or a folder that was never built.
    const QSet<QString> others{QStringLiteral("unreadable"), QStringLiteral("not-regular"),
                               QStringLiteral("same-key"), QStringLiteral("build-changes-size")};
    QSet<QString> all;
    for (const DescriptionRule &rule : DescriptionCheck::getRules()) {
        all.insert(rule.name);
    }

    QCOMPARE(all - others, shown);
}

void tst_DescriptionCorpus::examplesHaveNoError_data()
{
    QTest::addColumn<QString>("path");
    QDirIterator walk(QStringLiteral(EXAMPLES), {QStringLiteral("*.process.json")}, QDir::Files,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString path = walk.next();
        QTest::newRow(qPrintable(path.mid(int(sizeof EXAMPLES)))) << path;
    }
    QTest::newRow("device") << QStringLiteral(EXAMPLES "/device");
}

void tst_DescriptionCorpus::examplesHaveNoError()
{
    QFETCH(QString, path);
    LogCapture log;

    QCOMPARE(errorsOf(path), QStringList());
}

void tst_DescriptionCorpus::largeFolderHasNoError()
{
    const QTemporaryDir parent;
    const QString path = parent.filePath(QStringLiteral("device"));
    QCOMPARE(QProcess::execute(QStringLiteral(MAKE_DIRECTORY),
                               {path, QStringLiteral("200"), QStringLiteral("10")}),
             0);
    LogCapture log;

    QCOMPARE(errorsOf(path), QStringList());
}

QTEST_GUILESS_MAIN(tst_DescriptionCorpus)
#include "tst_DescriptionCorpus.moc"
