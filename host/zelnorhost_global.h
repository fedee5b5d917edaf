#pragma once

#include <QtCore/qglobal.h>

#if defined(ZELNORHOST_LIBRARY)
#define ZELNORHOST_EXPORT Q_DECL_EXPORT
#else
#define ZELNORHOST_EXPORT Q_DECL_IMPORT
#endif
