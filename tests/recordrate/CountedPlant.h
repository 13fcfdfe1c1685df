#pragma once

#include "Access/ProcessDoubleHandle.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QString>

#include <vector>

/// A live region of doubles with states in which what each set holds follows from its number.
///
/// Set 0 is all zero. In set N the next so many leaves, round and round, hold N.
class CountedPlant
{
public:
    /// Writes the description into @p folder.
    CountedPlant(const QString &folder, int leaves, int changing);

    bool isLive() const { return m_isLive; }
    const QString &file() const { return m_file; }
    static QString key();
    /// The first of the leaves that change in this set.
    static int firstChanged(quint64 number, int leaves, int changing);
    /// Which of the leaves has this URL.
    static int leafAt(const QString &url);

    /// The set of the next number.
    bool publish() { return write(m_number + 1) && swap(); }
    /// One in which a leaf is not of that set.
    bool publishTorn();
    /// One that nobody knows of.
    bool publishUncounted() { return m_manager.swapReadAndWriteBuffer(); }
    /// The number of the last set.
    quint64 number() const { return m_number; }

private:
    bool write(quint64 number);
    bool swap();

    QString m_file;
    int m_changing;
    ProcessDataManager m_manager;
    ProcessDataManager::BaseClassSharedPointer m_root;
    std::vector<ProcessDoubleHandle> m_leaves;
    quint64 m_number = 0;
    bool m_isLive = false;
};
