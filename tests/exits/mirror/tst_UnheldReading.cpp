#include "Access/ProcessDataGuards.h"
#include "Access/ProcessDataSnapshot.h"
#include "ProcessDataManagement/ProcessDataManager.h"
#include "mirror/UnheldReading.h"
#include "region/DescriptionTree.h"
#include "tool/ToolDescription.h"

#include <QtTest>

namespace {

using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE;
using ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID;

/// A region with one number, and somebody who is in it.
class Program
{
public:
    Program(const QString &file, ProcessDataManager::InitTypeSharedMemory type)
        : m_tree(DescriptionTree::read(file))
    {
        manager.createProcessData(m_tree.root, type);
    }
    bool write(int number)
    {
        ProcessDataWriteGuard guard(manager);
        m_tree.leaves[0].element->setValueNoLock({number, PROCESS_VALUE_ERROR_TYPE_VALID});
        return guard.isLocked() && guard.publish();
    }
    int numberIn(const ProcessDataSnapshot &set) const
    {
        ProcessValue value(PROCESS_VALUE_ERROR_TYPE_NO_VALID_INPUT_VALUE);
        set.getValue(*m_tree.leaves[0].element, value);
        return value.getValue().toInt();
    }

    ProcessDataManager manager;

private:
    DescriptionTree m_tree;
};

QString descriptionFile(ToolDescription &description)
{
    description.add(QStringLiteral("a"), QStringLiteral("int32"),
                    ToolDescription::Metadata::ErrorState, 4);
    return description.write();
}

} // namespace

/// Who sends sets reads them whatever happens to him, and the publisher goes on.
class tst_UnheldReading : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newestSetIsRead();
    void writerIsNeverKeptOff();
    void setBehindTheLastWriterIsRead();

private:
    ToolDescription m_description;
    QString m_file = descriptionFile(m_description);
};

void tst_UnheldReading::newestSetIsRead()
{
    Program publisher(m_file, ProcessDataManager::InitTypeSharedMemoryCreate);
    Program reader(m_file, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataSnapshot set;
    QVERIFY(publisher.write(3));
    QVERIFY(publisher.write(4));

    QVERIFY(readWithoutHolding(reader.manager, [&] { QVERIFY(set.take(reader.manager)); }));

    QCOMPARE(reader.numberIn(set), 4);
}

void tst_UnheldReading::writerIsNeverKeptOff()
{
    Program publisher(m_file, ProcessDataManager::InitTypeSharedMemoryCreate);
    Program reader(m_file, ProcessDataManager::InitTypeSharedMemoryAttach);
    int number = 0;

    // The second of the two goes where the reader reads.
    QVERIFY(!readWithoutHolding(reader.manager, [&] {
        QVERIFY(publisher.write(++number));
        QVERIFY(publisher.write(++number));
    }));

    QCOMPARE(number, 2 * 11);
}

void tst_UnheldReading::setBehindTheLastWriterIsRead()
{
    Program publisher(m_file, ProcessDataManager::InitTypeSharedMemoryCreate);
    Program reader(m_file, ProcessDataManager::InitTypeSharedMemoryAttach);
    ProcessDataSnapshot set;
    int number = 0;

    QVERIFY(readWithoutHolding(reader.manager, [&] {
        QVERIFY(set.take(reader.manager));
        for (int i = 0; i < 2 && number < 10; ++i) {
            QVERIFY(publisher.write(++number));
        }
    }));

    QCOMPARE(reader.numberIn(set), 10);
}

QTEST_GUILESS_MAIN(tst_UnheldReading)
#include "tst_UnheldReading.moc"
