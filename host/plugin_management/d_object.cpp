#include <plugin_management/d_object.h>

DObject::DObject(QObject* parent) : QObject(parent) { }

DObject::~DObject() = default;
