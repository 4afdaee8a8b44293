#pragma once

#include <QtCore/qglobal.h>

#if defined(HOST_PLUGIN_MANAGEMENT_BUILD)
#define HOST_PLUGIN_MANAGEMENT_EXPORT Q_DECL_EXPORT
#else
#define HOST_PLUGIN_MANAGEMENT_EXPORT Q_DECL_IMPORT
#endif
