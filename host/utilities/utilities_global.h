#pragma once

#include <QtCore/qglobal.h>

#if defined(HOST_UTILITIES_BUILD)
#define HOST_UTILITIES_EXPORT Q_DECL_EXPORT
#else
#define HOST_UTILITIES_EXPORT Q_DECL_IMPORT
#endif
