#pragma once

#include <QQmlExtensionPlugin>

/// The models under the import `Tessel 1.0`, and their enumerations under the name `Tessel`.
class TesselPlugin : public QQmlExtensionPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

public:
    explicit TesselPlugin(QObject *parent = nullptr) : QQmlExtensionPlugin(parent) { }

    void registerTypes(const char *uri) override;
};
