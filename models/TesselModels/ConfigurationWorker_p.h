#pragma once

#include "Configuration/ConfigurationAndProcessDataBase.h"

#include <QDir>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <vector>

/// A value of a configuration, with what its description says of it.
struct ConfigurationLeaf
{
    QString url;
    QString type;    ///< name of the data type
    QString unit;    ///< empty: none
    QString label;   ///< identifier of the text to show; empty: none
    QString pattern; ///< of a text; empty: none
    QVariant minimum;
    QVariant maximum;
    QVariant displayPosition;
    QStringList selection; ///< what a selector selects from, by index
    bool isReadOnly = false;
    QVariant value; ///< invalid: nothing has been entered
};

/// What a display shows of a configuration after it was read.
struct ShownConfiguration
{
    bool isLoaded = false;
    QString errorText;
    std::vector<ConfigurationLeaf> leaves; ///< in the order of their display positions
};

Q_DECLARE_METATYPE(std::shared_ptr<const ShownConfiguration>)

/// What a model of a configuration does in its thread: reads, checks, writes. All operations belong to it.
class ConfigurationWorker : public QObject
{
    Q_OBJECT

public:
    ConfigurationWorker();
    ~ConfigurationWorker() override;

    void load(const QString &path);
    void write(const QString &url, const QVariant &value);
    void save(const QString &moduleName, const QString &objectName);

Q_SIGNALS:
    void loaded(const std::shared_ptr<const ShownConfiguration> &shown);
    /// @p leafUrl is that of the array if @p url names a cell; @p value is what its element holds now.
    void written(const QString &url, int status, const QString &text, const QString &leafUrl,
                 const QVariant &value);
    void saved(bool isSaved, const QString &text);

private:
    QSharedPointer<ConfigurationDataValue> leafAt(const QString &url) const;

    QString m_path;
    QDir m_directory;
    QString m_instance; ///< in the directory, without extension
    ConfigurationAndProcessDataBase::BaseClassSharedPointer m_root; ///< null: none was read
};
