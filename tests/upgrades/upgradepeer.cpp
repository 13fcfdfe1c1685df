// A user of one region, built with the library of today and with a former one: creates or attaches,
// and does what it is told, a line of words for a line of answer. Its log goes to standard error.

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QDeadlineTimer>
#include <QStringList>

#include <chrono>
#include <iostream>
#include <limits>
#include <string>

namespace {

/// A reader that is slower than a publisher without a pause repeats until that one has ended; this is longer
/// than any of them publishes.
constexpr std::chrono::minutes longestReading{2};

/// The leaves of the description, in the order of its keys: count/0 ... all get one number, `text` its
/// decimal form.
class Region
{
public:
    Region(const QString &file, ProcessDataManager::InitTypeSharedMemory type)
        : m_root(m_manager.createProcessDataFromFile(file, type))
    {
    }

    bool isUsable() const { return !m_root.isNull() && m_manager.isBufferValid(); }

    /// Writes every leaf in one lock, up to @p limit of them.
    bool fill(int number, int limit)
    {
        m_manager.lockWriteBuffer();
        bool isWritten = m_manager.getPointerWriteBuffer() != nullptr;
        for (int i = 0; i < limit && isWritten; ++i) {
            const auto leaf = counter(i);
            if (leaf.isNull()) {
                break;
            }
            isWritten = leaf->setValueNoLock(valid(number));
        }
        return isWritten && text()->setValueNoLock(valid(QString::number(number)));
    }

    bool publish(int number)
    {
        const bool isFilled = fill(number, std::numeric_limits<int>::max());
        const bool isUnlocked = m_manager.unlockWriteBuffer();
        return isFilled && isUnlocked && m_manager.swapReadAndWriteBuffer();
    }

    /// The numbers and states of all leaves in one set, without those that repeat the one before.
    QString read()
    {
        for (const QDeadlineTimer end(longestReading); !end.hasExpired();) {
            bool repeat = false;
            m_manager.lockReadBuffer();
            const QString found = m_manager.getPointerReadBuffer() != nullptr
                                      ? distinctValues()
                                      : QStringLiteral("locked");
            m_manager.unlockReadBuffer(repeat);
            if (!repeat) {
                return found;
            }
        }
        return QStringLiteral("repeats");
    }

    bool setOne(int number) { return counter(0)->setValue(valid(number)); }

private:
    static ProcessValue valid(const QVariant &content)
    {
        return {content, ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID};
    }
    static QString shown(const ProcessDataValue &leaf)
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        leaf.getValueNoLock(value, false);
        return value.getErrorType() == ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID
                   ? value.getValue().toString()
                   : QStringLiteral("error%1").arg(static_cast<int>(value.getErrorType()));
    }
    ProcessDataValueSharedPointer counter(int index)
    {
        return m_root->getLeafProcessDataValue(QStringLiteral("count/%1").arg(index));
    }
    ProcessDataValueSharedPointer text()
    {
        return m_root->getLeafProcessDataValue(QStringLiteral("text"));
    }
    QString distinctValues()
    {
        QStringList values;
        for (int i = 0; const auto leaf = counter(i); ++i) {
            values.append(shown(*leaf));
        }
        values.append(shown(*text()));
        values.removeDuplicates();
        return values.join(QLatin1Char('|'));
    }

    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
};

/// Publishes or reads set after set, without a pause.
QString repeatedly(Region &region, const QString &action, int count)
{
    int done = 0;
    for (int i = 1; i <= count; ++i) {
        if (action == QLatin1String("publish")) {
            done += region.publish(i) ? 1 : 0;
        } else {
            const QString found = region.read();
            if (found.contains(QLatin1Char('|')) || found == QLatin1String("repeats")) {
                return QStringLiteral("torn ") + found;
            }
            ++done;
        }
    }
    return QString::number(done);
}

QString carryOut(Region &region, const QStringList &words)
{
    const QString &action = words.first();
    const int number = words.value(1).toInt();
    if (action == QLatin1String("read")) {
        return region.read();
    }
    if (action == QLatin1String("repeat")) {
        return repeatedly(region, words.value(1), words.value(2).toInt());
    }
    bool isDone = false;
    if (action == QLatin1String("publish")) {
        isDone = region.publish(number);
    } else if (action == QLatin1String("set")) {
        isDone = region.setOne(number);
    } else if (action == QLatin1String("stay")) {
        // Half of a set, inside the write lock.
        isDone = region.fill(number, 1);
    }
    return isDone ? QStringLiteral("done") : QStringLiteral("refused");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::cerr << "usage: upgradepeer create|attach DESCRIPTION" << std::endl;
        return 2;
    }
    Region region(QString::fromLocal8Bit(argv[2]),
                  std::string(argv[1]) == "create"
                      ? ProcessDataManager::InitTypeSharedMemoryCreate
                      : ProcessDataManager::InitTypeSharedMemoryAttach);
    std::cout << (region.isUsable() ? "ready" : "refused") << std::endl;
    std::string line;
    while (region.isUsable() && std::getline(std::cin, line)) {
        std::cout
            << carryOut(region, QString::fromStdString(line).split(QLatin1Char(' '))).toStdString()
            << std::endl;
    }
    return 0;
}
