#pragma once

#include "mirror/SlotLayout.h"
#include "service/Settings.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

/// Which machines can meet, and how: the part of the configuration that senders and receivers share.
struct DomainSettings
{
    quint32 domain = 0;
    QStringList interfaces; ///< names; all of one run have to be there
    QStringList peers;      ///< addresses to be asked one by one; none: multicast
    quint16 portBase = 7400;
    quint64 sampleLimit = 32 << 20; ///< bytes; larger ones are neither taken nor sent
    QString security;               ///< folder of the certificates; empty: nothing is encrypted

    /// The keys, for a syntax.
    static QVector<SettingSyntax> syntax();
    /// Throws a Refusal: an interface that is not there, or one that others can hear without `security` or
    /// `insecure`; a certificate or key that is missing, or a key that others can read.
    static DomainSettings from(const SettingGroup &settings);
    /// Raises the limit of samples where sets and layouts of a region want it.
    void makeRoomFor(const SlotLayout &layout);
    /// The configuration of the engine.
    QByteArray engineText() const;
};
