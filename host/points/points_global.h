#pragma once

#include <QtGlobal>

#ifdef HOST_POINTS_BUILD
#define HOST_POINTS_EXPORT Q_DECL_EXPORT
#else
#define HOST_POINTS_EXPORT Q_DECL_IMPORT
#endif
