#pragma once

#include "TesselModels/ModelEnumerations.h"

#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>

class ProcessDataSource;

/// One process value of a source, for bindings.
///
/// Of a URL that the description does not have, and without a source, it is without input and not
/// writable. Signals come only when an answer changes.
class TESSEL_MODELS_EXPORT ProcessDataItem : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ProcessDataSource *source READ getSource WRITE setSource NOTIFY sourceChanged)
    Q_PROPERTY(QString url READ getUrl WRITE setUrl NOTIFY urlChanged)
    Q_PROPERTY(QVariant value READ getValue WRITE setValue NOTIFY valueChanged)
    Q_PROPERTY(QString text READ getText NOTIFY valueChanged)
    Q_PROPERTY(int state READ getState NOTIFY valueChanged)
    Q_PROPERTY(QString stateName READ getStateName NOTIFY valueChanged)
    Q_PROPERTY(bool isValid READ isValid NOTIFY valueChanged)
    Q_PROPERTY(QString name READ getName NOTIFY urlChanged)
    Q_PROPERTY(QString unit READ getUnit NOTIFY descriptionChanged)
    Q_PROPERTY(QString type READ getType NOTIFY descriptionChanged)
    Q_PROPERTY(QString label READ getLabel NOTIFY descriptionChanged)
    Q_PROPERTY(QVariant minimum READ getMinimum NOTIFY descriptionChanged)
    Q_PROPERTY(QVariant maximum READ getMaximum NOTIFY descriptionChanged)
    Q_PROPERTY(bool isWritable READ isWritable NOTIFY isWritableChanged)

public:
    explicit ProcessDataItem(QObject *parent = nullptr);
    ~ProcessDataItem() override;

    /// Not owned, and of the same thread; null: none, also once it was destroyed.
    ProcessDataSource *getSource() const;
    /// See getSource().
    void setSource(ProcessDataSource *source);

    /// Of the value in the whole description.
    QString getUrl() const;
    /// See getUrl().
    void setUrl(const QString &url);

    /// In its own type; invalid, which QML calls undefined, unless the value is valid.
    QVariant getValue() const;
    /// Writes it through the source. getValue() stays what it is until a set with the new one comes.
    void setValue(const QVariant &value);
    /// For a person; 64-bit integers with all their digits.
    QString getText() const;
    /// Number of the TesselModels::State.
    int getState() const;
    /// See TesselModels::stateName().
    QString getStateName() const;
    /// Whether there is a value.
    bool isValid() const;

    /// Last piece of the URL.
    QString getName() const;
    QString getUnit() const;
    /// Name of the data type, such as `float`.
    QString getType() const;
    /// Identifier of the text to show.
    QString getLabel() const;
    /// Lower limit, in the unit of the value; invalid: none.
    QVariant getMinimum() const;
    /// Upper limit, in the unit of the value; invalid: none.
    QVariant getMaximum() const;
    /// Whether the region is there, and others than its creator may write the value.
    bool isWritable() const;

Q_SIGNALS:
    void sourceChanged();
    void urlChanged();
    void valueChanged();
    void descriptionChanged();
    void isWritableChanged();
    /// See ProcessDataSource::writeFailed(): of this value alone.
    void writeFailed(int code, const QString &text);

private:
    class Q_DECL_HIDDEN Private;
    Q_DECL_HIDDEN QVariant answer(int role) const;
    Q_DECL_HIDDEN void showSet();
    Q_DECL_HIDDEN void begin();

    std::unique_ptr<Private> m_private;
};
