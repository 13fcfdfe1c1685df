// The other side of tests with several processes: attaches to the memory of a description and does
// what it is told, one JSON object a line.

#include "ProcessData/Linux/ProcessDataValue.h"
#include "ProcessDataManagement/ProcessDataManager.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <iostream>
#include <string>

namespace {

void answer(const QVariantMap &map)
{
    const QByteArray text =
        QJsonDocument(QJsonObject::fromVariantMap(map)).toJson(QJsonDocument::Compact);
    std::cout << text.toStdString() << std::endl;
}

ProcessValue requestedValue(const QVariantMap &request)
{
    const auto state = static_cast<ProcessDataDefinitions::ErrorTypes>(
        request.value(QStringLiteral("error")).toInt());
    QVariant value = request.value(QStringLiteral("value"));
    const int type = request.value(QStringLiteral("type")).toInt();
    if (state != ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID || !value.convert(type)) {
        return ProcessValue(state);
    }
    return ProcessValue(value, state);
}

QVariantMap readAnswer(const ProcessDataValue &leaf)
{
    ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
    leaf.getValue(value);
    return {{QStringLiteral("error"), static_cast<int>(value.getErrorType())},
            {QStringLiteral("type"), value.getValue().userType()},
            {QStringLiteral("value"), value.getValue().toString()}};
}

bool carryOut(ProcessDataManager &manager, ProcessDataValue *leaf, const QVariantMap &request)
{
    const QString action = request.value(QStringLiteral("do")).toString();
    if (action == QLatin1String("swap")) {
        return manager.swapReadAndWriteBuffer();
    }
    if (leaf == nullptr) {
        return false;
    }
    if (action == QLatin1String("write")) {
        return leaf->setValue(requestedValue(request));
    }
    return action == QLatin1String("stay") && manager.lockWriteBuffer()
           && manager.getPointerWriteBuffer() != nullptr
           && leaf->setValueNoLock(requestedValue(request));
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::cerr << "usage: exchangepeer DESCRIPTION" << std::endl;
        return 2;
    }
    ProcessDataManager manager;
    const auto root = manager.createProcessDataFromFile(
        QString::fromLocal8Bit(argv[1]), ProcessDataManager::InitTypeSharedMemoryAttach);
    answer({{QStringLiteral("ready"), !root.isNull() && manager.isBufferValid()}});
    std::string line;
    while (root && std::getline(std::cin, line)) {
        const QVariantMap request =
            QJsonDocument::fromJson(QByteArray::fromStdString(line)).object().toVariantMap();
        const auto leaf = root->getLeafProcessDataValue(
            request.value(QStringLiteral("url")).toString());
        if (request.value(QStringLiteral("do")) == QLatin1String("read") && leaf) {
            answer(readAnswer(*leaf));
        } else {
            answer({{QStringLiteral("ok"), carryOut(manager, leaf.data(), request)}});
        }
    }
    return root ? 0 : 1;
}
