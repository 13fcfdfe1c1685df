#include "Access/ProcessDataGuards.h"
#include "mirror/MirroredRegion.h"
#include "region/DescriptionTree.h"
#include "tool/ToolDescription.h"

#include <QtTest>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// Another process, but for its memory.
class LocalProgram
{
public:
    explicit LocalProgram(const QString &file) : m_tree(DescriptionTree::read(file))
    {
        m_manager.createProcessData(m_tree.root, ProcessDataManager::InitTypeSharedMemoryAttach);
    }
    bool write(int leaf, int number)
    {
        ProcessDataWriteGuard guard(m_manager);
        m_tree.leaves[leaf].element->setValueNoLock({number, PROCESS_VALUE_ERROR_TYPE_VALID});
        return guard.publish();
    }
    /// And does not come to publish it.
    void writeOnly(int leaf, int number)
    {
        const ProcessDataWriteGuard guard(m_manager);
        m_tree.leaves[leaf].element->setValueNoLock({number, PROCESS_VALUE_ERROR_TYPE_VALID});
    }
    QVariant read(int leaf)
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        m_tree.leaves[leaf].element->getValue(value);
        return value.getValue();
    }

private:
    DescriptionTree m_tree;
    ProcessDataManager m_manager;
};

/// Two numbers, and the sets of their source.
struct Plant
{
    Plant()
    {
        description.add(QStringLiteral("a"), QStringLiteral("int32"),
                        ToolDescription::Metadata::ErrorState, 4);
        description.add(QStringLiteral("b"), QStringLiteral("int32"),
                        ToolDescription::Metadata::ErrorState, 4);
        file = description.write();
    }
    static QByteArray set(qint32 a, qint32 b)
    {
        const qint32 words[] = {a, 0, b, 0};
        return QByteArray(reinterpret_cast<const char *>(words), sizeof words);
    }

    ToolDescription description;
    QString file;
};

bool show(MirroredRegion &region, const QByteArray &bytes)
{
    return region.show(reinterpret_cast<const unsigned char *>(bytes.constData()),
                       ByteOrder::ofThisMachine());
}

QVector<RequestedValue> request(const char *url, const char *text)
{
    return {{QString::fromLatin1(url), 0, QString::fromLatin1(text)}};
}

} // namespace

/// What others write into a mirror is found before the next set of the source takes its place.
class tst_LocalWrites : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writeIsFoundThoughTheNextSetIsFirst();
    void writeThatIsNotPublishedYetIsFound();
    void writeIsFoundOnce();
    void setOfTheSourceIsNoWrite();
    void sourceIsShownAgain();
};

void tst_LocalWrites::writeIsFoundThoughTheNextSetIsFirst()
{
    const Plant plant;
    MirroredRegion region(plant.file, {}, UrlChoice());
    region.watchWrites();
    LocalProgram program(plant.file);
    QVERIFY(show(region, Plant::set(1, 2)));

    QVERIFY(program.write(1, 7));
    QVERIFY(show(region, Plant::set(3, 4)));

    QCOMPARE(region.writes()->takeFound(), {request("b", "7")});
    QCOMPARE(program.read(0), QVariant(3));
    QCOMPARE(program.read(1), QVariant(4));
}

void tst_LocalWrites::writeThatIsNotPublishedYetIsFound()
{
    const Plant plant;
    MirroredRegion region(plant.file, {}, UrlChoice());
    region.watchWrites();
    LocalProgram program(plant.file);
    QVERIFY(show(region, Plant::set(1, 2)));

    program.writeOnly(0, 7);
    QVERIFY(show(region, Plant::set(3, 4)));

    QCOMPARE(region.writes()->takeFound(), {request("a", "7")});
    QCOMPARE(program.read(0), QVariant(3));
}

void tst_LocalWrites::writeIsFoundOnce()
{
    const Plant plant;
    MirroredRegion region(plant.file, {}, UrlChoice());
    region.watchWrites();
    LocalProgram program(plant.file);
    QVERIFY(show(region, Plant::set(1, 2)));

    QVERIFY(program.write(0, 7));
    region.writes()->look();
    region.writes()->look();
    QVERIFY(show(region, Plant::set(1, 2)));

    QCOMPARE(region.writes()->takeFound(), {request("a", "7")});
    QVERIFY(region.writes()->takeFound().isEmpty());
}

void tst_LocalWrites::setOfTheSourceIsNoWrite()
{
    const Plant plant;
    MirroredRegion region(plant.file, {}, UrlChoice());
    region.watchWrites();

    QVERIFY(show(region, Plant::set(1, 2)));
    region.writes()->look();
    QVERIFY(region.showTimeout());
    QVERIFY(show(region, Plant::set(3, 4)));
    region.writes()->look();

    QVERIFY(region.writes()->takeFound().isEmpty());
}

void tst_LocalWrites::sourceIsShownAgain()
{
    const Plant plant;
    MirroredRegion region(plant.file, {}, UrlChoice());
    region.watchWrites();
    LocalProgram program(plant.file);
    QVERIFY(show(region, Plant::set(1, 2)));
    QVERIFY(program.write(0, 7));
    region.writes()->look();
    QCOMPARE(program.read(0), QVariant(7));

    QVERIFY(region.showAgain());

    QCOMPARE(program.read(0), QVariant(1));
    QCOMPARE(program.read(1), QVariant(2));
}

QTEST_GUILESS_MAIN(tst_LocalWrites)
#include "tst_LocalWrites.moc"
