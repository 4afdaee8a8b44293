#pragma once

#include <plugin_management/plugin_management_global.h>

#include <QObject>

/// The root of the framework's classes. It adds no virtual operation to QObject's.
class HOST_PLUGIN_MANAGEMENT_EXPORT DObject : public QObject
{
    Q_OBJECT

public:
    explicit DObject(QObject* parent = nullptr);
    ~DObject() override;
};
