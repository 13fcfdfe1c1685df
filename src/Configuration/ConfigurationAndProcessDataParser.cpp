#include "Configuration/ConfigurationAndProcessDataParser.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "Companion/FormatVersions.h"
#include "Companion/JsonReading.h"
#include "Companion/RegularFile_p.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "Configuration/DescriptionTexts_p.h"
#include "Configuration/DescriptionTree_p.h"
#include "Configuration/ElementRegistration_p.h"
#include "Configuration/ParsedDescriptions_p.h"

#include <QDebug>
#include <QFile>

namespace {

using Base = ConfigurationAndProcessDataBase;
using Definitions = ConfigurationAndProcessDataDefinitions;

Base::BaseClassSharedPointer createLeaf(const QJsonObject &json, const QString &postfix)
{
    const auto *creator = ElementRegistration::LeafFactory::instance().findCreator(postfix);
    if (creator == nullptr) {
        qWarning() << "wrong file postfix" << postfix;
        return {};
    }
    Base::BaseClassSharedPointer leaf(creator->create(json));
    DescriptionTree::noteLeaf(leaf);
    return leaf;
}

/// What checkVersion() reads of a description.
QJsonObject versionOf(const JsonText::Value &root)
{
    const QString &key = Definitions::getKeyDataPropertySchemeVersion();
    const QByteArray name = key.toLatin1();
    const JsonText::Value version = root.isObject() ? root.member(QLatin1String(name))
                                                    : JsonText::Value();
    const bool isNumber = version.isValid()
                          && (version.kind() == JsonText::Kind::Integer
                              || version.kind() == JsonText::Kind::Double);
    return isNumber ? QJsonObject{{key, version.toDouble()}} : QJsonObject();
}

} // namespace

const int ConfigurationAndProcessDataParser::sm_minimumNumberOfDotsInFileName = 2;

ConfigurationAndProcessDataParser::ConfigurationAndProcessDataParser()
    : m_validFileExtensions{ElementRegistration::configurationPostfix,
                            ElementRegistration::processDescriptionPostfix}
{
}

void ConfigurationAndProcessDataParser::setCheckVersion(bool check)
{
    m_checkVersion = check;
}

ConfigurationAndProcessDataParser::BaseClassSharedPointer ConfigurationAndProcessDataParser::
    parseFromFile(const QString &path) const
{
    QFile file;
    if (!RegularFile::openForReading(path, file)) {
        return {};
    }
    const QString postfix = cutOutFileTypeAndExtension(path);
    if (postfix.isEmpty() || !m_validFileExtensions.contains(postfix)) {
        qWarning() << "No valid file extension found" << postfix;
        return {};
    }
    const QByteArray text = RegularFile::readText(file);
    ParsedDescriptions *parsed = ParsedDescriptions::current();
    // A parser that does not look at the version keeps quiet where another one would speak.
    if (parsed == nullptr || !m_checkVersion) {
        return parseFromByteArray(text, postfix);
    }
    return parsed->treeOf(text, postfix, [&] { return parseFromByteArray(text, postfix); });
}

ConfigurationAndProcessDataParser::BaseClassSharedPointer ConfigurationAndProcessDataParser::
    parseFromByteArray(const QByteArray &data, const QString &postfix) const
{
    const bool hasLeadingDot = postfix.startsWith(QLatin1Char('.'));
    const DescriptionTexts texts;
    DescriptionTexts::Reading reading(*DescriptionTexts::current());
    JsonText &text = reading.text();
    if (!text.read(data)) {
        qWarning() << "Parsing error: " << text.error().errorString();
        return {};
    }
    // Another scheme version is worth a warning, but what can be read of it is read.
    checkVersion(versionOf(text.root()));
    return DescriptionTree(hasLeadingDot ? postfix.mid(1) : postfix).createNode(text.root());
}

ConfigurationAndProcessDataParser::BaseClassSharedPointer ConfigurationAndProcessDataParser::
    parseFromJson(const QString &json, const QString &postfix) const
{
    return parseFromByteArray(json.toUtf8(), postfix);
}

ConfigurationAndProcessDataParser::BaseClassSharedPointer ConfigurationAndProcessDataParser::
    parseFromJson(const QVariant &json, const QString &postfix) const
{
    return parseFromByteArray(json.toByteArray(), postfix);
}

ConfigurationAndProcessDataParser::BaseClassSharedPointer ConfigurationAndProcessDataParser::
    createNode(const QJsonObject &json, const QString &postfix) const
{
    const DescriptionTexts texts;
    const auto type = json.constFind(Definitions::getKeyDataPropertyType());
    if (type == json.constEnd()) {
        qWarning() << "key 'type' not found in JSON object";
        return {};
    }
    if (type.value().toString() == Definitions::getKeyDataTypeTreeNode()) {
        return createTreeNode(json, postfix);
    }
    return createLeaf(json, postfix);
}

ConfigurationAndProcessDataParser::BaseClassSharedPointer ConfigurationAndProcessDataParser::
    createTreeNode(const QJsonObject &json, const QString &postfix) const
{
    const QJsonValue childsInformation = json.value(Definitions::getKeyDataPropertyValue());
    if (childsInformation.isUndefined()) {
        qWarning() << "childs information is invalid" << json.keys();
        return {};
    }
    const auto node = QSharedPointer<ConfigurationAndProcessDataTreeNode>::create(json, nullptr);
    const QJsonObject childs = childsInformation.toObject();
    DescriptionTexts::Children children(*DescriptionTexts::current());
    for (auto member = childs.constBegin(); member != childs.constEnd(); ++member) {
        if (!member.value().isObject()) {
            qWarning() << "non object child element in tree node found" << member.key();
            return {};
        }
        const QString key = children.next(member.key());
        const BaseClassSharedPointer child = createNode(member.value().toObject(), postfix);
        if (child.isNull()) {
            qWarning() << "object is invalid" << member.key();
            return {};
        }
        node->addElement(key, child);
        DescriptionTree::forwardPropertyChanged(*child, *node);
    }
    return node;
}

bool ConfigurationAndProcessDataParser::checkVersion(const QJsonObject &json) const
{
    if (!m_checkVersion) {
        return true;
    }
    int version = 0;
    if (!readIntegerValueFromJson(Definitions::getKeyDataPropertySchemeVersion(), json, version,
                                  0)) {
        return true;
    }
    if (version == FormatVersions::description) {
        return true;
    }
    ParsedDescriptions::noteWhatCanBeSeen();
    qWarning() << "Received incompatible scheme version:" << version << ","
               << FormatVersions::description << "!";
    return false;
}

QString ConfigurationAndProcessDataParser::cutOutFileTypeAndExtension(const QString &path) const
{
    const QStringList pieces = path.split(QLatin1Char('.'));
    if (pieces.size() <= sm_minimumNumberOfDotsInFileName) {
        qWarning() << "Path is not valid: " << path;
        return {};
    }
    return pieces.at(pieces.size() - 2) + QLatin1Char('.') + pieces.last();
}
