#include "Configuration/ConfigurationDataAndProcessDescriptionAccess.h"
#include "Configuration/DescriptionTexts_p.h"
#include "Configuration/ParsedDescriptions_p.h"
#include "ProcessDataManagement/ProcessDataBuilder.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QDebug>
#include <QFileInfo>

namespace {

bool buildDirectory(const QString &keyPrefix, const QString &processDir, QString &key)
{
    if (!ProcessDataBuilder().buildProcessDataFromDir(keyPrefix, processDir, key)) {
        qWarning() << "Can't build processDataFromDir:" << processDir;
        return false;
    }
    return true;
}

} // namespace

ProcessDataManager::BaseClassSharedPointer ProcessDataManager::createProcessDataFromDir(
    const QString &keyPrefix, const QString &processDir,
    ProcessDataManager::InitTypeSharedMemory type)
{
    const ParsedDescriptions parsed;
    const DescriptionTexts texts;
    // Who attaches finds the files as the creating process left them.
    if (type == InitTypeSharedMemoryCreate
        && !buildDirectory(keyPrefix, processDir, m_sharedMemoryDirKeyName)) {
        return {};
    }
    BaseClassSharedPointer root;
    if (!ConfigurationDataAndProcessDescriptionAccess::parseProcessDir(root,
                                                                       QFileInfo(processDir))) {
        qWarning() << "Can't parse root element:" << processDir;
        return {};
    }
    return createProcessData(root, type);
}

bool ProcessDataManager::updateProcessDataFromDirAfterConfigurationChanged(
    const QString &keyPrefix, const QString &processDir)
{
    if (m_sharedMemoryDirKeyName.isEmpty()) {
        qWarning() << "No sharedMemoryDirKeyName. Can't change sharedMemeory dir files"
                   << processDir;
        return false;
    }
    return buildDirectory(keyPrefix, processDir, m_sharedMemoryDirKeyName);
}
